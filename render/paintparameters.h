#pragma once

#include <algorithm>
#include <cstddef>
#include <limits>

#include "render/geometry.h"
#include "render/pixels.h"

/// Where one visible line of the zoomed source lies in the destination. "Columns" and "rows" are those of the
/// source, whatever the orientation makes of them.
struct PaintParameters {
    bool visible = false;
    CSize source;      ///< The source's size.
    CSize zoom;        ///< The size at which the source is painted, before turning.
    double scale = 0;  ///< Zoom over source, both sides added.
    int64_t left = 0;  ///< First visible column and row of the zoomed source.
    int64_t top = 0;
    int columns = 0;  ///< Visible columns and rows of the zoomed source.
    int rows = 0;
    ptrdiff_t start = 0;       ///< Destination pixel of the first visible one.
    ptrdiff_t columnStep = 0;  ///< From it to the next column's, in pixels.
    ptrdiff_t rowStep = 0;     ///< And to the next row's.
};

/// The background, with r, g, b in bits 0-7, 8-15 and 16-23, as a pixel.
template <class Pixel>
Pixel backgroundPixel(unsigned long background) {
    using Channel = typename Pixel::Channel;
    const unsigned r = background & 0xFF, g = background >> 8 & 0xFF, b = background >> 16 & 0xFF;
    if constexpr (Pixel::kChannels == 3)
        return {static_cast<Channel>(r), static_cast<Channel>(g), static_cast<Channel>(b)};
    else
        return {static_cast<Channel>((r + 2 * g + b) >> 2)};
}

/// The geometry of painting, without touching a pixel. The sizes must be positive.
PaintParameters placeImage(CSize srcSize, CSize dstSize, CPoint offset, CSize zoom, CRect clip,
                           ORIENTATION orientation);

/// Fills the destination with the background and works out where the image goes. False when a size makes no
/// sense.
template <class Pixel>
bool PreparePaintParameters(CSize srcSize, Pixel* dst, CSize dstSize, CPoint offset, CSize zoom, CRect clip,
                            ORIENTATION orientation, unsigned long background, PaintParameters& parameters) {
    // Both limits keep every product of the samplers within 64 bits.
    constexpr int64_t kLargestSide = std::numeric_limits<int32_t>::max();
    constexpr int64_t kLargestScale = 1 << 20;
    for (const int64_t side : {srcSize.cx, srcSize.cy, dstSize.cx, dstSize.cy, zoom.cx, zoom.cy})
        if (side <= 0 || side > kLargestSide) return false;
    if (zoom.cx > srcSize.cx * kLargestScale || zoom.cy > srcSize.cy * kLargestScale) return false;
    std::fill_n(dst, static_cast<size_t>(dstSize.cx) * static_cast<size_t>(dstSize.cy),
                backgroundPixel<Pixel>(background));
    parameters = placeImage(srcSize, dstSize, offset, zoom, clip, orientation);
    return true;
}
