#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace keltlegacy {

enum class DecodeStatus {
    Ok,              ///< A picture was decoded, from a whole stream or from a prefix of one.
    NotLegacy,       ///< Shorter than a header or with another magic.
    BadPixelFormat,  ///< Bytes per pixel other than 1, 2 and 3.
    NoPixels,        ///< Width or height 0.
    TooLarge,        ///< More pixels than the caller's limit.
    Damaged,         ///< The bit stream says what no encoder writes.
};

/// The text of a status, for a message.
const char* describe(DecodeStatus status);

/// The streams of one bit plane of one level class of one component, in the order of the payload.
struct PlaneRecord {
    int component;
    int levelClass;
    int plane;
    int golombParameter;        ///< -1 when the payload ends before it.
    uint64_t refinementBits;    ///< As far as the payload holds them.
    uint64_t significanceBits;  ///< Likewise; with the 5 bits of the parameter.
};

struct Picture {
    int width = 0;
    int height = 0;
    int bytesPerPixel = 0;  ///< 1 grey, 2 16-bit grey in host byte order, 3 r, g, b.
    int bitsUsed = 0;
    int levels = 0;
    int topPlane = -1;      ///< -1 when the payload ends before it is known.
    bool complete = false;  ///< The payload held the whole stream, and the samples are the exact ones.
    uint64_t bitsRead = 0;
    std::vector<PlaneRecord> planes;
    std::vector<uint8_t> samples;  ///< width x height x bytesPerPixel bytes, rows without gaps.
};

inline constexpr uint64_t kDefaultPixelLimit = uint64_t{1} << 26;

/// Decodes a payload of the legacy coder or any prefix of one that holds the header. What a prefix leaves
/// open of a coefficient that is already significant is taken as the middle of its interval. Memory is a
/// small multiple of the header's width x height, refused above `pixelLimit`; time is bounded by that and the
/// planes present.
DecodeStatus decode(std::span<const uint8_t> payload, Picture& picture,
                    uint64_t pixelLimit = kDefaultPixelLimit);

}  // namespace keltlegacy
