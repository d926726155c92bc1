#pragma once

#include <algorithm>
#include <random>

#include "keltlegacy/compression.h"
#include "keltlegacy/keltcompress.h"
#include "tests/shared/testing.h"

/// Reproducible pictures: 0 noise, 1 gradient with noise, 2 constant, 3 extremes in blocks, 4 one bright
/// pixel, 5 checkerboard of extremes.
inline constexpr int kPictureKinds = 6;
// NOLINTNEXTLINE(readability-function-cognitive-complexity): a list of pictures
inline Bytes picture(int kind, int bytesPerPixel, int w, int h) {
    const int samples = bytesPerPixel == 3 ? 3 : 1;
    const int largest = bytesPerPixel == 2 ? 65535 : 255;
    std::mt19937 random(static_cast<unsigned>(kind * 1000 + w * 7 + h));
    Bytes out;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < samples; ++c) {
                int v = 0;
                if (kind == 0) v = static_cast<int>(random() % (largest + 1u));
                if (kind == 1)
                    v = (x * (c + 2) + y * 3) * (largest + 1) / 1024 + static_cast<int>(random() % 6);
                if (kind == 2) v = largest / 3;
                if (kind == 3) v = (x / 8 + y / 16 + c) % 2 * largest;
                if (kind == 4) v = x == w / 2 && y == h / 3 ? largest : 0;
                if (kind == 5) v = (x + y + c) % 2 * largest;
                v = std::min(v, largest);
                out.push_back(static_cast<uint8_t>(v));
                if (bytesPerPixel == 2) out.push_back(static_cast<uint8_t>(v >> 8));
            }
    return out;
}

/// Compresses into a buffer that holds exactly what may be written, with a guard behind it.
inline Bytes compress(const Bytes& pixels, int bitsUsed, int bytesPerPixel, int w, int h,
                      size_t outSize = size_t{1} << 20) {
    const size_t room = std::max<size_t>(outSize, keltlegacy::kHeaderSize);
    Bytes out(room + 8, 0xA5);
    const size_t n = keltcompress(pixels.data(), bitsUsed, bytesPerPixel, w, h, out.data(), outSize);
    EXPECT_LE(n, room);
    for (size_t i = room; i < out.size(); ++i)
        EXPECT_EQ(out[i], 0xA5) << "written past the buffer";
    out.resize(n);
    return out;
}
