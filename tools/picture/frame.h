#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/picture/window.h"

namespace picture {

/// A picture in 8 bits: rows without gaps, 1 (grey) or 3 (r, g, b) channels.
struct Picture {
    int width = 0;
    int height = 0;
    int channels = 1;
    std::vector<uint8_t> pixels;
};

/// A frame or thumbnail as one of the viewer's files holds it.
struct Frame {
    std::string coding;  ///< "Kelt stream", "legacy stream" or "pixels".
    std::string state;   ///< Whether the samples are exact, for people.
    int width = 0;
    int height = 0;
    int reduce = 0;         ///< The halvings that led from the frame's size to this one.
    int bytesPerPixel = 0;  ///< 1 grey, 2 16-bit grey in host byte order, 3 r, g, b.
    int bitsUsed = 0;
    int levels = -1;                       ///< Of the wavelet transform; -1 without one.
    uint64_t bytesUsed = 0;                ///< Of the stream or the pixel file.
    std::optional<uint64_t> bytesInAll{};  ///< Of the whole stream, where that is known.
    std::optional<DisplayWindow> window{};
    std::vector<uint8_t> samples;
};

/// Reads a frame from
/// - ".p.qi4", ".t.qi4": the preview or the first part of the stream;
/// - ".f.qi4": the whole stream, its first part from the ".t.qi4" of the same name;
/// - ".cw1": the compressed thumbnail, its window from the files of the same name;
/// - ".raw": the pixels, described by `descPath`, or when that is empty by the PREFIX.desc beside
/// PREFIX_N.raw.
/// Streams are decoded to 1/2^`reduce` of their sides; nothing else can be. Throws PictureError.
Frame loadFrame(const std::string& path, const std::string& descPath, int reduce = 0);

/// The frame as it is to be looked at: grey through its window, or through its own range when it has none.
Picture developed(const Frame& frame);

}  // namespace picture
