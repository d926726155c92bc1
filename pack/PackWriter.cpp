#include "pack/PackWriter.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "pack/PackError.h"
#include "pack/PackIndex.h"
#include "pack/PackLock.h"
#include "pack/crc32c.h"

namespace pack {
namespace {

std::span<const uint8_t> bytesOf(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

}  // namespace

PackWriter::PackWriter(std::string prefix, Order order, Durability durability)
    : m_prefix(std::move(prefix)), m_durability(durability) {
    const PackLock lock(m_prefix);
    remove(m_prefix);
    const std::string token = PackLock::tokenOf(m_prefix);
    try {
        m_index = std::make_unique<PackStore>(token, true);
        m_objects = std::make_unique<PackStore>(token + ".objects", false);
        m_texts = std::make_unique<PackStore>(token + ".texts", false);
    } catch (...) {
        remove(m_prefix);
        throw;
    }
    m_head.order = order;
    m_index->append(encode(m_head));  // a place for what is known in the end
}

PackWriter::~PackWriter() {
    if (m_finished) return;
    try {
        const PackLock lock(m_prefix);
        if (m_index->bearsItsName()) remove(m_prefix);
    } catch (const PackError&) {
        // Somebody holds the folder: the next writer removes them.
    }
}

void PackWriter::remove(const std::string& prefix) {
    const std::string token = PackLock::tokenOf(prefix);
    removeFile(prefix + std::string(kIndexSuffix));
    for (const char* scratch : {"", ".objects", ".texts"})
        removeFile(token + scratch);
    for (const std::string_view suffix : kStoreSuffixes)
        removeFile(prefix + std::string(suffix));
}

void PackWriter::checkOwner() const {
    if (!m_index->bearsItsName()) throw PackError(m_prefix + ": another writer of this pack came later");
}

PackStore& PackWriter::store(Store which) {
    const auto at = static_cast<size_t>(which);
    if (!m_stores[at]) {
        const PackLock lock(m_prefix);
        checkOwner();
        m_stores[at] = std::make_unique<PackStore>(m_prefix + std::string(kStoreSuffixes[at]), true);
    }
    return *m_stores[at];
}

Piece PackWriter::text(std::string_view text) {
    const Piece piece{m_texts->size(), static_cast<uint32_t>(text.size()), crc32c(bytesOf(text))};
    m_texts->append(bytesOf(text));
    return piece;
}

void PackWriter::beginObject(std::string_view name) {
    endObject();
    if (!isSafeName(name)) throw PackError("\"" + std::string(name) + "\" cannot name an object of a pack");
    if (m_head.objects == kMostRecords) throw PackError("a pack holds no more objects");
    m_object = {};
    m_object.firstFrame = m_head.frames;
    m_object.name = text(name);
    m_inObject = true;
}

uint32_t PackWriter::beginFrame(std::string_view line) {
    endFrame();
    if (m_head.frames == kMostRecords) throw PackError("a pack holds no more frames");
    m_frame = describedBy(line);
    m_frame.object = static_cast<uint32_t>(m_head.objects);
    m_frame.line = text(line);
    m_inFrame = true;
    return m_frame.number;
}

void PackWriter::grow(Piece& piece, Store which, std::span<const uint8_t> bytes, bool isFirst) {
    PackStore& data = store(which);
    if (which == Store::raws)
        keepRaws(data, data.size() + bytes.size() <= framesOfPart() * m_sharedRaws.frameBytes);
    if (isFirst) piece.offset = data.size();
    if (piece.offset + piece.length != data.size()) throw PackError("elements of a pack are mixed up");
    if (bytes.size() > UINT32_MAX - piece.length) throw PackError(data.path() + ": a part of 4 GiB or more");
    data.append(bytes);
    piece.length += static_cast<uint32_t>(bytes.size());
    piece.sum = crc32c(bytes, piece.sum);
}

void PackWriter::add(Element element, std::span<const uint8_t> bytes) {
    const auto kind = static_cast<size_t>(element);
    const bool isFirst = !m_frame.has(element);
    m_frame.present = static_cast<uint8_t>(m_frame.present | 1U << kind);
    grow(m_frame.elements[kind], kElements[kind].store, bytes, isFirst);
}

void PackWriter::addObjectFile(size_t kind, std::span<const uint8_t> bytes) {
    const bool isFirst = (m_object.present >> kind & 1) == 0;
    m_object.present |= 1U << kind;
    grow(m_object.files[kind], Store::objects, bytes, isFirst);
}

void PackWriter::shareRaws(std::string path, uint32_t before, uint32_t frames) {
    m_place = Place{std::move(path), before, frames};
}

/// Frames of different sizes never share a file: their places in it would not be apart.
std::string PackWriter::rawsPath(uint64_t frameBytes) const {
    return m_place.value().path + "." + std::to_string(frameBytes);
}

/// After the first frame, which tells how many bytes each one has.
void PackWriter::placeRaws(PackStore& raws) {
    const uint64_t frameBytes = raws.size(), offset = m_place->before * frameBytes;
    const auto shared = SharedFile::range(rawsPath(frameBytes), offset, m_place->frames * frameBytes);
    if (!shared) return;
    const PackLock lock(m_prefix);
    checkOwner();
    m_sharedRaws = {offset, frameBytes, shared->identity()};
    raws.moveInto(*shared, offset);
}

/// After the other frames, and before bytes that may reach into the place of others: those of this part have
/// a file of their own again where they do not `fit`.
void PackWriter::keepRaws(PackStore& raws, bool fit) {
    if (m_sharedRaws.identity == 0 || fit) return;
    m_sharedRaws = {};
    const PackLock lock(m_prefix);
    checkOwner();
    raws.moveOut();
}

void PackWriter::takeOver(const std::string& prefix, const SharedRaws& raws) {
    endFrame();
    const PackIndex part(prefix + std::string(kIndexSuffix));
    if (part.head().objects != 1) throw PackError(part.path() + " is not of one object");
    if (part.head().frames > kMostRecords - m_head.frames) throw PackError("a pack holds no more frames");
    std::array<uint64_t, kStoreSuffixes.size()> before{};
    for (size_t i = 0; i < before.size(); ++i)
        if (m_stores[i]) before[i] = m_stores[i]->size();
    part.walk({.frame =
                   [&](FrameRecord frame) {
                       frame.object = static_cast<uint32_t>(m_head.objects);
                       frame.line = text(part.text(frame.line));
                       for (size_t i = 0; i < kElements.size(); ++i) {
                           if (!frame.has(Element{static_cast<int>(i)})) continue;
                           (void)store(kElements[i].store);  // also for elements of no bytes
                           frame.elements[i].offset += before[static_cast<size_t>(kElements[i].store)];
                       }
                       m_index->append(encode(frame));
                       ++m_head.frames;
                       ++m_object.frames;
                   },
               .sums = false,
               .elsewhere = raws.identity != 0 ? std::optional(Store::raws) : std::nullopt});
    for (size_t i = 0; i < before.size(); ++i)
        if (part.head().storeBytes[i] > 0) takeStore(part, Store{static_cast<int>(i)}, raws);
}

void PackWriter::takeStore(const PackIndex& part, Store which, const SharedRaws& raws) {
    PackStore& own = store(which);
    // Files are renamed or made anew where they bear no other writer's name, and the names have to be ours.
    std::optional<PackLock> lock;
    if (own.size() == 0 || own.isShared()) {
        lock.emplace(m_prefix);
        checkOwner();
    }
    const uint64_t size = part.head().storeBytes[static_cast<size_t>(which)];
    if (which != Store::raws || raws.identity == 0)
        own.takeOver(part.storePath(which), size);
    else
        own.takeOver(holdRaws(part, raws), rawsPath(raws.frameBytes), raws.offset, size);
}

/// Whoever writes the part anew removes its index first: where it is still there once the file is held, the
/// file is what it was.
const SharedFile& PackWriter::holdRaws(const PackIndex& part, const SharedRaws& raws) {
    auto& held = m_heldRaws[raws.frameBytes];
    if (!held) held = SharedFile::whole(rawsPath(raws.frameBytes));
    if (!held || held->identity() != raws.identity || !part.bearsItsName())
        throw PackError(rawsPath(raws.frameBytes) + " is not what the raw pixels of " + part.path() +
                        " were written to");
    return *held;
}

void PackWriter::endFrame() {
    if (!std::exchange(m_inFrame, false)) return;
    m_index->append(encode(m_frame));
    ++m_head.frames;
    ++m_object.frames;
    PackStore* raws = m_stores[static_cast<size_t>(Store::raws)].get();
    if (!m_place || !raws) return;
    if (m_head.frames == 1)
        placeRaws(*raws);
    else
        keepRaws(*raws, raws->size() == m_head.frames * m_sharedRaws.frameBytes);
}

void PackWriter::endObject() {
    endFrame();
    if (!std::exchange(m_inObject, false)) return;
    m_objects->append(encode(m_object));
    ++m_head.objects;
}

void PackWriter::finish() {
    endObject();
    const bool durable = m_durability == Durability::durable;
    for (size_t i = 0; i < m_stores.size(); ++i) {
        if (!m_stores[i]) continue;
        m_head.storeBytes[i] = m_stores[i]->size();
        m_stores[i]->close(durable);
    }
    m_head.textBytes = m_texts->size();
    m_objects->copyTo(*m_index);
    m_texts->copyTo(*m_index);
    m_index->writeFirst(encode(m_head));
    if (durable) m_index->sync();
    const PackLock lock(m_prefix);
    checkOwner();
    try {
        m_index->close(false);
        const std::string index = m_prefix + std::string(kIndexSuffix);
        if (std::rename(m_index->path().c_str(), index.c_str()) != 0)
            throw PackError(index + " cannot be made (" + std::strerror(errno) + ")");
        if (durable) lock.sync();
    } catch (...) {
        remove(m_prefix);
        throw;
    }
    m_finished = true;
}

ElementStream::ElementStream(PackWriter& writer, Element element) : m_writer(writer), m_element(element) {
    m_file = fopencookie(this, "w", {nullptr, &ElementStream::take, nullptr, nullptr});
    if (!m_file) throw std::bad_alloc();
}

ElementStream::~ElementStream() {
    if (m_file) (void)std::fclose(m_file);
}

void ElementStream::close(bool there) {
    const int failed = std::fclose(std::exchange(m_file, nullptr));
    if (!m_problem.empty()) throw PackError(m_problem);
    if (failed != 0) throw PackError("an element of a pack cannot be written");
    if (there) m_writer.add(m_element, {});
}

// Nothing is thrown through the C library.
ssize_t ElementStream::take(void* stream, const char* bytes, size_t count) {
    auto* self = static_cast<ElementStream*>(stream);
    try {
        if (self->m_problem.empty()) {
            self->m_writer.add(self->m_element, {reinterpret_cast<const uint8_t*>(bytes), count});
            return static_cast<ssize_t>(count);
        }
    } catch (const std::exception& error) {
        self->m_problem = error.what();
    }
    errno = EIO;
    return 0;
}

}  // namespace pack
