#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace keltlegacy {

inline constexpr int kMaxLevels = 5;

/// How often both sides of a picture are halved: 5 for 128 x 128, 4 for 32 x 32, 0 when a side is below 4.
/// The coarsest band keeps at least two samples a side.
inline int levelCount(int width, int height) {
    for (int levels = kMaxLevels; levels > 0; --levels)
        if ((1 << levels) <= width / 2 && (1 << levels) <= height / 2) return levels;
    return 0;
}

/// The coefficients of one component by level class, each class in the raster order of the full picture.
/// Class j below the last holds the three detail bands of level j + 1, the last class the coarsest band.
template <class T>
using LevelClasses = std::vector<std::vector<T>>;

/// Number of coefficients of the detail bands that one more level splits off a band of w x h samples.
inline size_t detailCount(size_t w, size_t h) {
    return w * h - ((w + 1) / 2) * ((h + 1) / 2);
}

/// Takes the detail coefficients out of a transformed band of w x h interleaved samples; what is left of the
/// band, the samples at even x and even y, is moved together at its beginning.
template <class T>
std::vector<T> takeDetails(std::vector<T>& band, size_t w, size_t h) {
    std::vector<T> details(detailCount(w, h));
    T* detail = details.data();
    T* kept = band.data();
    for (size_t y = 0; y < h; ++y) {
        const T* row = band.data() + y * w;
        if (y % 2 != 0) {
            detail = std::copy_n(row, w, detail);
            continue;
        }
        for (size_t x = 1; x < w; x += 2)
            *detail++ = row[x];
        for (size_t x = 0; x < w; x += 2)
            *kept++ = row[x];
    }
    band.resize(static_cast<size_t>(kept - band.data()));
    return details;
}

/// The reverse: interleaves a band of half the size and the details into a band of w x h samples.
template <class T>
std::vector<T> putDetails(const std::vector<T>& half, const std::vector<T>& details, size_t w, size_t h) {
    std::vector<T> band(w * h);
    auto nextKept = half.begin();
    auto nextDetail = details.begin();
    for (size_t y = 0; y < h; ++y)
        for (size_t x = 0; x < w; ++x)
            band[y * w + x] = (x | y) % 2 == 0 ? *nextKept++ : *nextDetail++;
    return band;
}

}  // namespace keltlegacy
