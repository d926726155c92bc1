#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "pack/layout.h"

namespace pack {

/// Reads a pack. Nothing of its index is believed before it is checked: a record points within the files, or
/// it is refused. Everything throws PackError with the file's name. Holds a descriptor for each file that was
/// read from, and no more memory than what is asked for.
class PackIndex {
public:
    /// `path` is that of the index; the other files lie beside it.
    explicit PackIndex(std::string path);
    ~PackIndex();
    PackIndex(const PackIndex&) = delete;
    PackIndex& operator=(const PackIndex&) = delete;

    const IndexHead& head() const { return m_head; }
    const std::string& path() const { return m_path; }
    /// Of another file of the pack.
    std::string storePath(Store store) const;
    /// Whether the index that was opened is still the one at its path.
    bool bearsItsName() const;
    /// A frame by its place in viewing order, an object by its place in the table; both from 0.
    FrameRecord frame(uint64_t place) const;
    ObjectRecord object(uint64_t place) const;
    std::string text(const Piece& piece) const;

    /// An element that there is, or a file of an object, checked against its sum.
    std::vector<uint8_t> read(const FrameRecord& frame, Element element) const;
    /// The same in pieces; the sum is checked after the last one.
    using Take = std::function<void(std::span<const uint8_t>)>;
    void copy(const Piece& piece, Store store, const Take& take) const;

    /// Checks that the pack is whole to the last byte: every record, every sum, that each part of a file
    /// begins where the one before it ends and nothing is left over, that objects follow one another, that
    /// lines say what the records say. `seen` gets object after object and its frames.
    struct Visitor {
        std::function<void(const ObjectRecord&)> object{};
        std::function<void(const FrameRecord&)> frame{};
        bool sums = true;                     ///< also read all data and compare the sums
        std::optional<Store> elsewhere = {};  ///< a file that does not lie beside the index
    };
    void walk(const Visitor& visitor) const;

private:
    class Walk;

    int openBeside(Store store) const;
    [[noreturn]] void refuse(const std::string& cause) const;

    std::string m_path;
    int m_file = -1;
    IndexHead m_head;
    mutable std::array<int, kStoreSuffixes.size()> m_stores;
};

}  // namespace pack
