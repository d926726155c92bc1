#pragma once

#include <algorithm>
#include <cstdint>

#include "render/geometry.h"

/// The `count` pixels of row y from column x on. A run inside the image is returned in place; otherwise
/// `buffer` (room for `count` pixels) is filled, with 0 for what lies outside, and returned.
template <class Pixel>
const Pixel* GetImageLine(const Pixel* pixels, CSize size, int x, int y, int count, Pixel* buffer) {
    const bool rowInside = y >= 0 && y < size.cy;
    const int64_t end = int64_t{x} + count;
    if (rowInside && x >= 0 && end <= size.cx) return pixels + y * size.cx + x;

    std::fill_n(buffer, count, Pixel{});
    const int64_t from = std::max<int64_t>(x, 0);
    const int64_t to = std::min(end, size.cx);
    if (rowInside && from < to)
        std::copy(pixels + y * size.cx + from, pixels + y * size.cx + to, buffer + (from - x));
    return buffer;
}

template <class Pixel>
Pixel* GetImageLine(Pixel* pixels, CSize size, int x, int y, int count, Pixel* buffer) {
    return const_cast<Pixel*>(
        GetImageLine<Pixel>(static_cast<const Pixel*>(pixels), size, x, y, count, buffer));
}
