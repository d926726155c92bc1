#include "pack/PackIndex.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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
           std::memcmp(one.meaning.data(), other.meaning.data(), sizeof one.meaning) == 0;
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

void PackIndex::walk(const Visitor& visitor) const {
    Ends ends;
    uint64_t place = 0;
    const auto nothing = [](std::span<const uint8_t>) {};
    const auto checkFrame = [&](const FrameRecord& frame) {
        ends.follow(ends.texts, frame.line, "the texts");
        if (!sameMeaning(describedBy(text(frame.line)), frame))
            refuse("frame " + std::to_string(place + 1) + " and its line differ");
        for (size_t i = 0; i < kElements.size(); ++i) {
            if (!frame.has(Element{static_cast<int>(i)})) continue;
            ends.follow(kElements[i].store, frame.elements[i]);
            if (visitor.sums) copy(frame.elements[i], kElements[i].store, nothing);
        }
    };
    try {
        for (uint64_t i = 0; i < m_head.objects; ++i) {
            const ObjectRecord object = this->object(i);
            if (object.firstFrame != place) refuse("the objects do not follow one another");
            ends.follow(ends.texts, object.name, "the texts");
            if (!isSafeName(text(object.name))) refuse("an object has a name that is none");
            if (visitor.object) visitor.object(object);
            for (uint32_t n = 0; n < object.frames; ++n, ++place) {
                const FrameRecord frame = this->frame(place);
                if (frame.object != i) refuse("frame " + std::to_string(place + 1) + " is another object's");
                checkFrame(frame);
                if (visitor.frame) visitor.frame(frame);
            }
            for (size_t kind = 0; kind < kObjectFiles.size(); ++kind) {
                if ((object.present >> kind & 1) == 0) continue;
                ends.follow(Store::objects, object.files[kind]);
                if (visitor.sums) copy(object.files[kind], Store::objects, nothing);
            }
        }
    } catch (const Damaged& error) {
        refuse(error.what());
    }
    if (place != m_head.frames) refuse("frames belong to no object");
    if (ends.stores != m_head.storeBytes || ends.texts != m_head.textBytes)
        refuse("there are bytes that belong to nothing");
    for (size_t i = 0; i < m_stores.size(); ++i)
        if (m_head.storeBytes[i] > 0) (void)openBeside(Store{static_cast<int>(i)});
}

}  // namespace pack
