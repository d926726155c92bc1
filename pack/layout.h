#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

/// The index of a pack as its bytes stand in the file (docs/formats.md, "Packs"), and their checks.
namespace pack {

inline constexpr std::string_view kIndexSuffix = ".index";

/// The files that hold the data; what is fetched together lies together, in viewing order.
enum class Store { small, heads, rests, raws, objects };
inline constexpr std::array<std::string_view, 5> kStoreSuffixes = {".small", ".heads", ".rests", ".raws",
                                                                   ".objects"};

/// What a frame may have.
enum class Element { preview, thumbnail, head, rest, raw, thumbnailPixels };
struct ElementKind {
    std::string_view suffix;  ///< of the separate file
    Store store;
};
inline constexpr std::array<ElementKind, 6> kElements = {{{".p.qi4", Store::small},
                                                          {".128x128t.cw1", Store::small},
                                                          {".t.qi4", Store::heads},
                                                          {".f.qi4", Store::rests},
                                                          {".raw", Store::raws},
                                                          {".128x128t.raw", Store::raws}}};

/// What an object may have beside its frames and its descriptor, all in the last store.
inline constexpr std::array<std::string_view, 4> kObjectFiles = {".pdcm", ".pdf", ".obsinfo", ".fingerprint"};

/// A part of a store, or of the index's texts.
struct Piece {
    uint64_t offset = 0;
    uint32_t length = 0;
    uint32_t sum = 0;  ///< CRC-32C
};

/// A frame at its place in viewing order.
struct FrameRecord {
    uint32_t object = 0;
    uint32_t number = 0;  ///< in the names of its separate files
    uint16_t columns = 0;
    uint16_t rows = 0;
    bool colour = false;
    uint8_t bits = 0;
    uint8_t bitsUsed = 0;
    uint8_t present = 0;  ///< bit i: there is element i
    std::array<double, 6>
        meaning{};  ///< intercept, slope, window width and centre, spacing of rows, of columns
    Piece line;     ///< of the descriptor, among the texts
    std::array<Piece, kElements.size()> elements{};

    bool has(Element element) const { return (present >> static_cast<unsigned>(element) & 1) != 0; }
    const Piece& of(Element element) const { return elements[static_cast<size_t>(element)]; }
};

struct ObjectRecord {
    uint64_t firstFrame = 0;  ///< its frames follow one another
    uint32_t frames = 0;
    uint32_t present = 0;  ///< bit i: there is object file i
    Piece name;            ///< of its separate files, without suffix, among the texts
    std::array<Piece, kObjectFiles.size()> files{};
};

enum class Order : uint32_t { asGiven = 0, byGeometry = 1 };

struct IndexHead {
    uint64_t frames = 0;
    uint64_t objects = 0;
    uint64_t textBytes = 0;
    std::array<uint64_t, kStoreSuffixes.size()> storeBytes{};
    Order order = Order::asGiven;
};

inline constexpr size_t kHeadSize = 128, kFrameSize = 184, kObjectSize = 104;
inline constexpr size_t kLongestText = size_t{1} << 20;  ///< of a line or a name
inline constexpr uint64_t kMostRecords = UINT32_MAX;

std::array<uint8_t, kHeadSize> encode(const IndexHead& head);
std::array<uint8_t, kFrameSize> encode(const FrameRecord& frame);
std::array<uint8_t, kObjectSize> encode(const ObjectRecord& object);

/// Each throws Damaged for what is damaged, of another version, or points past an
/// end.
IndexHead decodeHead(std::span<const uint8_t> bytes, uint64_t fileSize);
FrameRecord decodeFrame(std::span<const uint8_t> bytes, const IndexHead& head);
ObjectRecord decodeObject(std::span<const uint8_t> bytes, const IndexHead& head);

/// Number, size, bits and meaning of a frame from its line of the descriptor, which ends in a line feed.
/// Throws Damaged for what is no such line.
FrameRecord describedBy(std::string_view line);

/// Whether an object's name may become part of a path: folders and a name, no way out of where it is put.
bool isSafeName(std::string_view name);

}  // namespace pack
