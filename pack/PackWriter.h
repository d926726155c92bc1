#pragma once

#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "pack/PackStore.h"
#include "pack/SharedFile.h"
#include "pack/layout.h"

namespace pack {

class PackIndex;

/// What a pack's index promises. Either way it exists only where everything that it names is whole, whatever
/// becomes of the process; `durable`: also after the machine lost its power.
enum class Durability { ofProcess, durable };

/// Where the raw pixels of a part of an object lie among those of all parts.
struct SharedRaws {
    uint64_t offset = 0;
    uint64_t frameBytes = 0;  ///< of each frame; the file's name ends with them
    uint64_t identity = 0;    ///< of the file; 0: they have a file of their own
};

/// Writes a pack, whose files are named prefix + suffix: object after object, frame after frame, in viewing
/// order. The index comes into being in finish(), by rename; before that the set has none, and where finish()
/// is not reached every file of it is removed. A later writer of the same names, in this or another process,
/// takes them away, and this one fails. Memory does not grow with frames or objects. Everything throws
/// PackError; after that the writer can only be destroyed.
class PackWriter {
public:
    /// Removes what an earlier pack left under the same names, its index first.
    PackWriter(std::string prefix, Order order, Durability durability = Durability::ofProcess);
    ~PackWriter();
    PackWriter(const PackWriter&) = delete;
    PackWriter& operator=(const PackWriter&) = delete;

    /// `name` is what the separate files of the object are called without their suffix.
    void beginObject(std::string_view name);
    /// `line` is the frame's line of the descriptor; returns the frame's number in it.
    uint32_t beginFrame(std::string_view line);
    /// The next bytes of an element, or of a file of the object; the first call, also of no bytes, says that
    /// it is there. Elements of one store come one after another, in the order of kElements.
    void add(Element element, std::span<const uint8_t> bytes);
    void addObjectFile(size_t kind, std::span<const uint8_t> bytes);
    /// Lets raw pixels be shared by those who write the parts of an object, in files that begin with `path`:
    /// one name for the same object and the same parts. To be called before the first frame.
    ///
    /// Of a part, whose `frames` frames follow `before` others, they are written to their place among all of
    /// them, as long as every frame has as many bytes as the first one, and nobody else writes there.
    void shareRaws(std::string path, uint32_t before = 0, uint32_t frames = 0);
    /// What became of it, once finish() was called.
    const SharedRaws& sharedRaws() const { return m_sharedRaws; }
    /// Puts the frames of another pack of one object, named `prefix` + suffix, behind those of the object in
    /// work. The bytes of its stores, its raw pixels wherever they are, move into this one's; nothing but its
    /// index stays of it.
    void takeOver(const std::string& prefix, const SharedRaws& raws = {});
    void finish();

    /// Bytes of the index that a frame takes.
    static uint64_t indexBytes(std::string_view line) { return kFrameSize + line.size(); }

private:
    /// Removes a pack's files, the index first. The folder is locked.
    static void remove(const std::string& prefix);
    PackStore& store(Store which);
    void takeStore(const PackIndex& part, Store which, const SharedRaws& raws);
    const SharedFile& holdRaws(const PackIndex& part, const SharedRaws& raws);
    std::string rawsPath(uint64_t frameBytes) const;
    uint64_t framesOfPart() const { return m_place ? m_place->frames : 0; }
    void placeRaws(PackStore& raws);
    void keepRaws(PackStore& raws, bool fit);
    /// Throws when another writer took the names. The folder is locked.
    void checkOwner() const;
    void endFrame();
    void endObject();
    void grow(Piece& piece, Store which, std::span<const uint8_t> bytes, bool isFirst);
    Piece text(std::string_view text);

    std::string m_prefix;
    Durability m_durability;
    std::array<std::unique_ptr<PackStore>, kStoreSuffixes.size()> m_stores;
    std::unique_ptr<PackStore> m_index;  ///< its name is the token (PackLock.h)
    std::unique_ptr<PackStore> m_objects;
    std::unique_ptr<PackStore> m_texts;
    IndexHead m_head;
    FrameRecord m_frame;
    ObjectRecord m_object;
    /// Where the raw pixels of a part would go.
    struct Place {
        std::string path;
        uint32_t before = 0;
        uint32_t frames = 0;
    };
    std::optional<Place> m_place;
    SharedRaws m_sharedRaws;
    std::map<uint64_t, std::unique_ptr<SharedFile>> m_heldRaws;  ///< by the bytes of their frames
    bool m_inFrame = false;
    bool m_inObject = false;
    bool m_finished = false;
};

/// A stream whose bytes become an element of the frame in work.
class ElementStream {
public:
    /// Borrows the writer.
    ElementStream(PackWriter& writer, Element element);
    ~ElementStream();
    ElementStream(const ElementStream&) = delete;
    ElementStream& operator=(const ElementStream&) = delete;

    /// Owned.
    std::FILE* get() const { return m_file; }
    /// Throws PackError when not everything that was written arrived. `there`: without any byte as well, the
    /// frame has this element.
    void close(bool there);

private:
    static ssize_t take(void* stream, const char* bytes, size_t count);

    PackWriter& m_writer;
    Element m_element;
    std::FILE* m_file = nullptr;
    std::string m_problem;
};

}  // namespace pack
