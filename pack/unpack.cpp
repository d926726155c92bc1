#include "pack/unpack.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>

#include "pack/PackError.h"
#include "pack/PackIndex.h"
#include "pack/PackStore.h"

namespace pack {
namespace {

namespace fs = std::filesystem;

/// Removes what it began unless it comes to its end.
class NewFile {
public:
    explicit NewFile(const std::string& path) {
        removeFile(path);
        m_store = std::make_unique<PackStore>(path, true);
    }
    ~NewFile() {
        if (m_store) removeFile(m_store->path());
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    void append(std::span<const uint8_t> bytes) { m_store->append(bytes); }
    void close() {
        m_store->close(false);
        m_store.reset();
    }

private:
    std::unique_ptr<PackStore> m_store;
};

class Unpacking {
public:
    /// Borrows `index` and `stops`.
    Unpacking(const PackIndex& index, std::string prefix, const std::function<bool()>& stops)
        : m_index(index), m_prefix(std::move(prefix)), m_stops(stops) {}

    void beginObject(const ObjectRecord& object) {
        endObject();
        m_stem = m_prefix + m_index.text(object.name);
        makeFolder();
        m_descriptor = std::make_unique<NewFile>(m_stem + ".desc");
        for (size_t kind = 0; kind < kObjectFiles.size(); ++kind)
            if ((object.present >> kind & 1) != 0)
                writeFile(m_stem + std::string(kObjectFiles[kind]), object.files[kind], Store::objects);
    }
    void takeFrame(const FrameRecord& frame) {
        const std::string line = m_index.text(frame.line);
        m_descriptor->append({reinterpret_cast<const uint8_t*>(line.data()), line.size()});
        for (size_t i = 0; i < kElements.size(); ++i)
            if (frame.has(Element{static_cast<int>(i)}))
                writeFile(m_stem + "_" + std::to_string(frame.number) + std::string(kElements[i].suffix),
                          frame.elements[i], kElements[i].store);
    }
    void endObject() {
        if (!m_descriptor) return;
        m_descriptor->close();
        m_descriptor.reset();
        ++m_files;
    }
    uint64_t files() const { return m_files; }

private:
    void makeFolder() const {
        const fs::path folder = fs::path(m_stem).parent_path();
        std::error_code error;
        if (!folder.empty()) fs::create_directories(folder, error);
        if (error) throw PackError("the folder " + folder.string() + " cannot be made: " + error.message());
    }
    void writeFile(const std::string& path, const Piece& piece, Store store) {
        if (m_stops && m_stops()) throw PackError("interrupted");
        NewFile file(path);
        m_index.copy(piece, store, [&](std::span<const uint8_t> bytes) { file.append(bytes); });
        file.close();
        ++m_files;
    }

    const PackIndex& m_index;
    std::string m_prefix;
    const std::function<bool()>& m_stops;
    std::string m_stem;
    std::unique_ptr<NewFile> m_descriptor;
    uint64_t m_files = 0;
};

}  // namespace

uint64_t unpack(const std::string& index, const std::string& prefix, const std::function<bool()>& stops) {
    const PackIndex pack(index);
    pack.walk({.sums = false});
    Unpacking unpacking(pack, prefix, stops);
    pack.walk({.object = [&](const ObjectRecord& object) { unpacking.beginObject(object); },
               .frame = [&](const FrameRecord& frame) { unpacking.takeFrame(frame); },
               .sums = false});
    unpacking.endObject();
    return unpacking.files();
}

}  // namespace pack
