#include "pack/PackIndex.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <utility>

#include "pack/PackError.h"
#include "pack/crc32c.h"

namespace pack {
namespace {

constexpr size_t kPieceSize = size_t{1} << 18;

/// A regular file and its size; throws PackError.
std::pair<int, uint64_t> opened(const std::string& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) throw PackError(path + " cannot be opened (" + std::strerror(errno) + ")");
    struct stat about {};
    if (fstat(file, &about) != 0 || !S_ISREG(about.st_mode)) {
        close(file);
        throw PackError(path + " is no regular file");
    }
    return {file, static_cast<uint64_t>(about.st_size)};
}

/// Fills `to` from `offset` on; throws PackError.
void readAt(int file, const std::string& path, uint64_t offset, std::span<uint8_t> to) {
    while (!to.empty()) {
        const ssize_t count = pread(file, to.data(), to.size(), static_cast<off_t>(offset));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0)
            throw PackError(path + " cannot be read" +
                            (count < 0 ? std::string(" (") + std::strerror(errno) + ")" : " to its end"));
        offset += static_cast<uint64_t>(count);
        to = to.subspan(static_cast<size_t>(count));
    }
}

/// Follows the parts of every file through a pack.
struct Ends {
    std::array<uint64_t, kStoreSuffixes.size()> stores{};
    uint64_t texts = 0;

    static void follow(uint64_t& end, const Piece& piece, std::string_view where) {
        if (piece.offset != end)
            throw Damaged(std::string("a part of ") + std::string(where) + " begins at " +
                          std::to_string(piece.offset) + ", the one before it ends at " +
                          std::to_string(end));
        end += piece.length;
    }
    void follow(Store store, const Piece& piece) {
        const auto at = static_cast<size_t>(store);
        follow(stores[at], piece, kStoreSuffixes[at]);
    }
};

bool sameMeaning(const FrameRecord& one, const FrameRecord& other) {
    return one.number == other.number && one.columns == other.columns && one.rows == other.rows &&
           one.colour == other.colour && one.bits == other.bits && one.bitsUsed == other.bitsUsed &&
           std::equal(one.meaning.begin(), one.meaning.end(), other.meaning.begin(), [](double a, double b) {
               return std::bit_cast<uint64_t>(a) == std::bit_cast<uint64_t>(b);  // "nan" is one, too
           });
}

}  // namespace

PackIndex::PackIndex(std::string path) : m_path(std::move(path)) {
    m_stores.fill(-1);
    if (!m_path.ends_with(kIndexSuffix)) throw PackError(m_path + " is not named as an index of a pack is");
    const auto [file, size] = opened(m_path);
    m_file = file;
    try {
        std::array<uint8_t, kHeadSize> bytes{};
        const auto there = std::span(bytes).first(std::min<uint64_t>(size, kHeadSize));
        readAt(m_file, m_path, 0, there);
        m_head = decodeHead(there, size);
    } catch (const Damaged& error) {
        close(m_file);
        refuse(error.what());
    } catch (...) {
        close(m_file);
        throw;
    }
}

PackIndex::~PackIndex() {
    close(m_file);
    for (const int file : m_stores)
        if (file >= 0) close(file);
}

void PackIndex::refuse(const std::string& cause) const {
    throw PackError(m_path + ": " + cause);
}

FrameRecord PackIndex::frame(uint64_t place) const {
    if (place >= m_head.frames)
        refuse("there is no frame " + std::to_string(place + 1) + " of " + std::to_string(m_head.frames));
    std::array<uint8_t, kFrameSize> bytes{};
    readAt(m_file, m_path, kHeadSize + place * kFrameSize, bytes);
    try {
        return decodeFrame(bytes, m_head);
    } catch (const Damaged& error) {
        refuse("frame " + std::to_string(place + 1) + ": " + error.what());
    }
}

ObjectRecord PackIndex::object(uint64_t place) const {
    if (place >= m_head.objects) refuse("there is no object " + std::to_string(place + 1));
    std::array<uint8_t, kObjectSize> bytes{};
    readAt(m_file, m_path, kHeadSize + m_head.frames * kFrameSize + place * kObjectSize, bytes);
    try {
        return decodeObject(bytes, m_head);
    } catch (const Damaged& error) {
        refuse("object " + std::to_string(place + 1) + ": " + error.what());
    }
}

std::string PackIndex::text(const Piece& piece) const {
    // A line or a name, never much: whoever claims more is not believed.
    if (piece.length > kLongestText) refuse("a text of " + std::to_string(piece.length) + " bytes");
    std::string text(piece.length, '\0');
    const std::span<uint8_t> bytes(reinterpret_cast<uint8_t*>(text.data()), text.size());
    readAt(m_file, m_path,
           kHeadSize + m_head.frames * kFrameSize + m_head.objects * kObjectSize + piece.offset, bytes);
    if (crc32c(bytes) != piece.sum) refuse("the checksum of a text is wrong");
    return text;
}

std::string PackIndex::storePath(Store store) const {
    return m_path.substr(0, m_path.size() - kIndexSuffix.size()) +
           std::string(kStoreSuffixes[static_cast<size_t>(store)]);
}

bool PackIndex::bearsItsName() const {
    struct stat ours {};
    struct stat named {};
    return fstat(m_file, &ours) == 0 && lstat(m_path.c_str(), &named) == 0 && ours.st_dev == named.st_dev &&
           ours.st_ino == named.st_ino;
}

int PackIndex::openBeside(Store store) const {
    int& known = m_stores[static_cast<size_t>(store)];
    if (known >= 0) return known;
    const auto [file, size] = opened(storePath(store));
    const uint64_t expected = m_head.storeBytes[static_cast<size_t>(store)];
    if (size != expected) {
        close(file);
        throw PackError(storePath(store) + " has " + std::to_string(size) + " bytes, its index names " +
                        std::to_string(expected));
    }
    return known = file;
}

void PackIndex::copy(const Piece& piece, Store store, const Take& take) const {
    if (piece.length == 0) return;
    const int file = openBeside(store);
    std::vector<uint8_t> buffer(std::min<size_t>(piece.length, kPieceSize));
    uint32_t sum = 0;
    for (uint32_t at = 0; at < piece.length;) {
        const auto part = std::span(buffer).first(std::min<size_t>(buffer.size(), piece.length - at));
        readAt(file, storePath(store), piece.offset + at, part);
        sum = crc32c(part, sum);
        take(part);
        at += static_cast<uint32_t>(part.size());
    }
    if (sum != piece.sum)
        throw PackError(storePath(store) + ": the checksum of the " + std::to_string(piece.length) +
                        " bytes from " + std::to_string(piece.offset) + " on is wrong");
}

std::vector<uint8_t> PackIndex::read(const FrameRecord& frame, Element element) const {
    const ElementKind& kind = kElements[static_cast<size_t>(element)];
    if (!frame.has(element))
        refuse("frame " + std::to_string(frame.number) + " has no " + std::string(kind.suffix));
    std::vector<uint8_t> bytes;
    copy(frame.of(element), kind.store,
         [&](std::span<const uint8_t> part) { bytes.insert(bytes.end(), part.begin(), part.end()); });
    return bytes;
}

/// One way through a pack, which knows where each part has to begin.
class PackIndex::Walk {
public:
    Walk(const PackIndex& index, const Visitor& visitor) : m_index(index), m_visitor(visitor) {}

    void object(uint64_t number) {
        const ObjectRecord object = m_index.object(number);
        if (object.firstFrame != m_place) m_index.refuse("the objects do not follow one another");
        Ends::follow(m_ends.texts, object.name, "the texts");
        if (!isSafeName(m_index.text(object.name))) m_index.refuse("an object has a name that is none");
        if (m_visitor.object) m_visitor.object(object);
        for (uint32_t n = 0; n < object.frames; ++n, ++m_place)
            frame(number);
        for (size_t kind = 0; kind < kObjectFiles.size(); ++kind)
            if ((object.present >> kind & 1) != 0) part(Store::objects, object.files[kind]);
    }
    void finish() const {
        if (m_place != m_index.m_head.frames) m_index.refuse("frames belong to no object");
        if (m_ends.stores != m_index.m_head.storeBytes || m_ends.texts != m_index.m_head.textBytes)
            m_index.refuse("there are bytes that belong to nothing");
        for (size_t i = 0; i < kStoreSuffixes.size(); ++i)
            if (m_index.m_head.storeBytes[i] > 0 && m_visitor.elsewhere != Store{static_cast<int>(i)})
                (void)m_index.openBeside(Store{static_cast<int>(i)});
    }

private:
    void frame(uint64_t object) {
        const FrameRecord frame = m_index.frame(m_place);
        const std::string name = "frame " + std::to_string(m_place + 1);
        if (frame.object != object) m_index.refuse(name + " is another object's");
        Ends::follow(m_ends.texts, frame.line, "the texts");
        if (!sameMeaning(describedBy(m_index.text(frame.line)), frame))
            m_index.refuse(name + " and its line differ");
        for (size_t i = 0; i < kElements.size(); ++i)
            if (frame.has(Element{static_cast<int>(i)})) part(kElements[i].store, frame.elements[i]);
        if (m_visitor.frame) m_visitor.frame(frame);
    }
    void part(Store store, const Piece& piece) {
        m_ends.follow(store, piece);
        if (m_visitor.sums) m_index.copy(piece, store, [](std::span<const uint8_t>) {});
    }

    const PackIndex& m_index;
    const Visitor& m_visitor;
    Ends m_ends;
    uint64_t m_place = 0;
};

void PackIndex::walk(const Visitor& visitor) const {
    Walk walk(*this, visitor);
    try {
        for (uint64_t i = 0; i < m_head.objects; ++i)
            walk.object(i);
    } catch (const Damaged& error) {
        refuse(error.what());
    }
    walk.finish();
}

}  // namespace pack
