#pragma once

#include <cstdint>

#include "kelt4/kernels/attributes.h"

namespace dvq::kelt4::kernels {

namespace {

/// Row loops one sample at a time: all of them for the portable kernel, the ends of rows for the others.
struct RowLoops {
    /// Deinterleaves a row of count samples, from pair number `pair` on.
    template <class S, class T>
    static void split(const S* samples, int count, T* low, T* high, int pair = 0) {
        const int pairs = count / 2;
        for (int i = pair; i < pairs; ++i) {
            low[i] = static_cast<T>(samples[2 * i]);
            high[i] = static_cast<T>(samples[2 * i + 1]);
        }
        if (count % 2 != 0) low[pairs] = static_cast<T>(samples[count - 1]);
    }

    /// Interleaves a row of count samples. A whole vector after its end may be written too.
    template <class T>
    static void merge(const T* low, const T* high, int count, T* samples, int pair = 0) {
        const int pairs = count / 2;
        for (int i = pair; i < pairs; ++i) {
            samples[2 * i] = low[i];
            samples[2 * i + 1] = high[i];
        }
        if (count % 2 != 0) samples[count - 1] = low[pairs];
    }

    /// RGB pixels to (R + 2G + B) / 4, R - G and B - G.
    static void convertColour(const uint8_t* pixels, int count, int16_t* y, int16_t* u, int16_t* v,
                              int first = 0) {
        for (int i = first; i < count; ++i) {
            const int red = pixels[3 * i], green = pixels[3 * i + 1], blue = pixels[3 * i + 2];
            y[i] = static_cast<int16_t>((red + 2 * green + blue) >> 2);
            u[i] = static_cast<int16_t>(red - green);
            v[i] = static_cast<int16_t>(blue - green);
        }
    }
};

}  // namespace

}  // namespace dvq::kelt4::kernels
