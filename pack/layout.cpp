#include "pack/layout.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>
#include <optional>

#include "pack/PackError.h"
#include "pack/crc32c.h"

namespace pack {
namespace {

constexpr char kMagic[] = {'V', 'P', 'A', 'K'};
constexpr uint16_t kVersion = 1;

/// Writes numbers one after another, the lowest byte first.
template <size_t size>
class Encoder {
public:
    template <typename T>
    Encoder& put(T value) {
        std::memcpy(m_bytes.data() + m_at, &value, sizeof value);
        m_at += sizeof value;
        return *this;
    }
    Encoder& put(const Piece& piece) { return put(piece.offset).put(piece.length).put(piece.sum); }
    void skipTo(size_t at) { m_at = at; }
    /// The sum of everything before it at `at`.
    std::array<uint8_t, size> sealed(size_t at) {
        m_at = at;
        put(crc32c(std::span(m_bytes).first(at)));
        return m_bytes;
    }

private:
    static_assert(std::endian::native == std::endian::little);
    std::array<uint8_t, size> m_bytes{};
    size_t m_at = 0;
};

/// Reads them again; the caller has checked the size.
class Decoder {
public:
    explicit Decoder(std::span<const uint8_t> bytes) : m_bytes(bytes) {}
    template <typename T>
    T take() {
        T value;
        std::memcpy(&value, m_bytes.data() + m_at, sizeof value);
        m_at += sizeof value;
        return value;
    }
    Piece takePiece() {
        Piece piece;
        piece.offset = take<uint64_t>();
        piece.length = take<uint32_t>();
        piece.sum = take<uint32_t>();
        return piece;
    }
    void skipTo(size_t at) { m_at = at; }

private:
    std::span<const uint8_t> m_bytes;
    size_t m_at = 0;
};

constexpr size_t kHeadSumAt = 124, kFrameSumAt = 176, kObjectSumAt = 96;

void checkSum(std::span<const uint8_t> bytes, size_t size, size_t at, const char* what) {
    if (bytes.size() < size) throw Damaged(std::string("the index ends within ") + what);
    uint32_t sum = 0;
    std::memcpy(&sum, bytes.data() + at, sizeof sum);
    if (sum != crc32c(bytes.first(at))) throw Damaged(std::string("the checksum of ") + what + " is wrong");
}

/// The fields of a line, which blanks separate. A series has hundreds of thousands of lines, and a stream
/// takes several microseconds for each.
class Fields {
public:
    explicit Fields(std::string_view line) : m_rest(line) {}

    std::string_view next() {
        const size_t begin = std::min(m_rest.find_first_not_of(kBlanks), m_rest.size());
        const size_t end = std::min(m_rest.find_first_of(kBlanks, begin), m_rest.size());
        const std::string_view field = m_rest.substr(begin, end - begin);
        m_rest.remove_prefix(end);
        return field;
    }
    std::optional<int64_t> whole(int64_t least, int64_t most) {
        const std::string_view field = next();
        int64_t value = 0;
        const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), value);
        const bool isWhole = error == std::errc() && end == field.data() + field.size();
        return isWhole && value >= least && value <= most ? std::optional(value) : std::nullopt;
    }
    /// As printf writes them, "inf" and "nan" included.
    bool decimal(double& value) {
        const std::string_view field = next();
        const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), value);
        return error == std::errc() && end == field.data() + field.size();
    }

private:
    static constexpr std::string_view kBlanks = " \n";
    std::string_view m_rest;
};

bool lies(const Piece& piece, uint64_t size) {
    return piece.offset <= size && piece.length <= size - piece.offset;
}

/// What is present lies within its store; what is not says nothing.
template <size_t count>
void checkPieces(const std::array<Piece, count>& pieces, uint32_t present, auto sizeOf, const char* what) {
    if (present >> count != 0) throw Damaged(std::string(what) + " has a part of an unknown kind");
    for (size_t i = 0; i < count; ++i) {
        const bool there = (present >> i & 1) != 0;
        if (there ? !lies(pieces[i], sizeOf(i)) : pieces[i].offset != 0 || pieces[i].length != 0)
            throw Damaged(std::string(what) + " points past the end of a file");
    }
}

}  // namespace

std::array<uint8_t, kHeadSize> encode(const IndexHead& head) {
    Encoder<kHeadSize> bytes;
    for (const char letter : kMagic)
        bytes.put(letter);
    bytes.put(kVersion).put(static_cast<uint16_t>(kHeadSize)).put(head.frames).put(head.objects);
    bytes.put(static_cast<uint32_t>(kFrameSize)).put(static_cast<uint32_t>(kObjectSize)).put(head.textBytes);
    for (const uint64_t size : head.storeBytes)
        bytes.put(size);
    bytes.put(static_cast<uint32_t>(head.order));
    return bytes.sealed(kHeadSumAt);
}

std::array<uint8_t, kFrameSize> encode(const FrameRecord& frame) {
    Encoder<kFrameSize> bytes;
    bytes.put(frame.object).put(frame.number).put(frame.columns).put(frame.rows);
    bytes.put(static_cast<uint8_t>(frame.colour)).put(frame.bits).put(frame.bitsUsed).put(frame.present);
    for (const double value : frame.meaning)
        bytes.put(value);
    bytes.put(frame.line);
    for (const Piece& piece : frame.elements)
        bytes.put(piece);
    return bytes.sealed(kFrameSumAt);
}

std::array<uint8_t, kObjectSize> encode(const ObjectRecord& object) {
    Encoder<kObjectSize> bytes;
    bytes.put(object.firstFrame).put(object.frames).put(object.present).put(object.name);
    for (const Piece& piece : object.files)
        bytes.put(piece);
    return bytes.sealed(kObjectSumAt);
}

IndexHead decodeHead(std::span<const uint8_t> bytes, uint64_t fileSize) {
    if (bytes.size() < sizeof kMagic || std::memcmp(bytes.data(), kMagic, sizeof kMagic) != 0)
        throw Damaged("this is no index of a pack");
    if (bytes.size() < kHeadSize) throw Damaged("the index ends within its head");
    Decoder from(bytes);
    from.skipTo(sizeof kMagic);
    const auto version = from.take<uint16_t>();
    if (version != kVersion)
        throw Damaged("the index is of version " + std::to_string(version) + ", which is not known");
    checkSum(bytes, kHeadSize, kHeadSumAt, "the head");
    const auto headSize = from.take<uint16_t>();
    IndexHead head;
    head.frames = from.take<uint64_t>();
    head.objects = from.take<uint64_t>();
    const auto frameSize = from.take<uint32_t>(), objectSize = from.take<uint32_t>();
    // cppcheck-suppress knownConditionTrueFalse; it is read from the index
    if (headSize != kHeadSize || frameSize != kFrameSize || objectSize != kObjectSize)
        throw Damaged("the index has records of another size");
    head.textBytes = from.take<uint64_t>();
    for (uint64_t& size : head.storeBytes)
        size = from.take<uint64_t>();
    const auto order = from.take<uint32_t>();
    if (order > static_cast<uint32_t>(Order::byGeometry)) throw Damaged("the index has an unknown order");
    head.order = Order{order};
    // With these limits no sum below can wrap.
    if (head.frames > kMostRecords || head.objects > kMostRecords || head.textBytes > fileSize ||
        kHeadSize + head.frames * kFrameSize + head.objects * kObjectSize + head.textBytes != fileSize)
        throw Damaged("the index has " + std::to_string(fileSize) + " bytes, which do not fit its " +
                      std::to_string(head.frames) + " frames and " + std::to_string(head.objects) +
                      " objects");
    return head;
}

FrameRecord decodeFrame(std::span<const uint8_t> bytes, const IndexHead& head) {
    checkSum(bytes, kFrameSize, kFrameSumAt, "a frame's record");
    Decoder from(bytes);
    FrameRecord frame;
    frame.object = from.take<uint32_t>();
    frame.number = from.take<uint32_t>();
    frame.columns = from.take<uint16_t>();
    frame.rows = from.take<uint16_t>();
    const auto layout = from.take<uint8_t>();
    frame.colour = layout == 1;
    frame.bits = from.take<uint8_t>();
    frame.bitsUsed = from.take<uint8_t>();
    frame.present = from.take<uint8_t>();
    for (double& value : frame.meaning)
        value = from.take<double>();
    frame.line = from.takePiece();
    for (Piece& piece : frame.elements)
        piece = from.takePiece();
    if (frame.object >= head.objects || frame.number == 0 || frame.number > INT32_MAX || frame.columns == 0 ||
        frame.rows == 0 || layout > 1)
        throw Damaged("a frame's record makes no sense");
    if (!lies(frame.line, head.textBytes)) throw Damaged("a frame's record points past the end of the texts");
    checkPieces(
        frame.elements, frame.present,
        [&](size_t i) { return head.storeBytes[static_cast<size_t>(kElements[i].store)]; },
        "a frame's record");
    return frame;
}

ObjectRecord decodeObject(std::span<const uint8_t> bytes, const IndexHead& head) {
    checkSum(bytes, kObjectSize, kObjectSumAt, "an object's record");
    Decoder from(bytes);
    ObjectRecord object;
    object.firstFrame = from.take<uint64_t>();
    object.frames = from.take<uint32_t>();
    object.present = from.take<uint32_t>();
    object.name = from.takePiece();
    for (Piece& piece : object.files)
        piece = from.takePiece();
    if (object.firstFrame > head.frames || object.frames > head.frames - object.firstFrame)
        throw Damaged("an object's record points past the last frame");
    if (!lies(object.name, head.textBytes))
        throw Damaged("an object's record points past the end of the texts");
    checkPieces(
        object.files, object.present,
        [&](size_t) { return head.storeBytes[static_cast<size_t>(Store::objects)]; }, "an object's record");
    return object;
}

FrameRecord describedBy(std::string_view line) {
    const auto refuse = [&]() -> Damaged {
        return Damaged("\"" + std::string(line.substr(0, 60)) + "\" is no line of a descriptor");
    };
    if (line.empty() || line.size() > kLongestText || line.back() != '\n' ||
        line.find('\n') != line.size() - 1)
        throw refuse();
    Fields fields(line);
    FrameRecord frame;
    const auto number = fields.whole(1, INT32_MAX), columns = fields.whole(1, UINT16_MAX),
               rows = fields.whole(1, UINT16_MAX);
    const std::string_view layout = fields.next();
    const auto bits = fields.whole(0, 64), bitsUsed = fields.whole(0, 64);
    bool isLine = number && columns && rows && bits && bitsUsed && (layout == "mono" || layout == "bypixel");
    for (double& meant : frame.meaning)
        isLine = isLine && fields.decimal(meant);
    if (!isLine) throw refuse();
    frame.number = static_cast<uint32_t>(*number);
    frame.columns = static_cast<uint16_t>(*columns);
    frame.rows = static_cast<uint16_t>(*rows);
    frame.colour = layout == "bypixel";
    frame.bits = static_cast<uint8_t>(*bits);
    frame.bitsUsed = static_cast<uint8_t>(*bitsUsed);
    return frame;
}

bool isSafeName(std::string_view name) {
    constexpr size_t kLongest = 1024;
    if (name.empty() || name.size() > kLongest) return false;
    for (const char letter : name)
        if (static_cast<unsigned char>(letter) < 0x20 || letter == 0x7F) return false;
    for (;;) {
        const std::string_view part = name.substr(0, name.find('/'));
        if (part.empty() || part == "." || part == "..") return false;
        if (part.size() == name.size()) return true;
        name.remove_prefix(part.size() + 1);
    }
}

}  // namespace pack
