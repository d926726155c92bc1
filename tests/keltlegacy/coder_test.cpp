#include <gtest/gtest.h>

#include "keltlegacy/compression.h"
#include "keltlegacy/keltcompress.h"
#include "tests/keltlegacy/plaincoder.h"

namespace {

using plain::Bytes;

/// Compresses into a buffer that holds exactly what may be written, with a guard behind it.
Bytes compress(const Bytes& pixels, int bitsUsed, int bytesPerPixel, int w, int h, std::size_t outSize) {
    const std::size_t room = std::max<std::size_t>(outSize, keltlegacy::headerSize);
    Bytes out(room + 8, 0xA5);
    const std::size_t n = keltcompress(pixels.data(), bitsUsed, bytesPerPixel, w, h, out.data(), outSize);
    EXPECT_LE(n, room);
    for (std::size_t i = room; i < out.size(); ++i)
        EXPECT_EQ(out[i], 0xA5) << "written past the buffer";
    out.resize(n);
    return out;
}

struct Size {
    int w, h;
};

TEST(LegacyCoderTest, AgreesWithThePlainForm) {
    const Size sizes[] = {{128, 128}, {128, 20}, {32, 32},  {33, 47}, {2, 2},   {1, 1},   {1, 40},
                          {40, 1},    {3, 64},   {4096, 3}, {65, 63}, {100, 7}, {256, 32}};
    for (const auto [w, h] : sizes)
        for (int bytesPerPixel = 1; bytesPerPixel <= 3; ++bytesPerPixel)
            for (int kind = 0; kind < plain::pictureKinds; ++kind) {
                const Bytes pixels = plain::picture(kind, bytesPerPixel, w, h);
                const Bytes expected = plain::compress(pixels, 12, bytesPerPixel, w, h);
                EXPECT_EQ(compress(pixels, 12, bytesPerPixel, w, h, expected.size() + 50), expected)
                    << w << " x " << h << " x " << bytesPerPixel << " kind " << kind;
            }
}

TEST(LegacyCoderTest, IsCutAtTheBudget) {
    const Bytes pixels = plain::picture(1, 2, 32, 32);
    const Bytes whole = plain::compress(pixels, 16, 2, 32, 32);
    for (std::size_t outSize = 0; outSize <= whole.size() + 5; ++outSize) {
        const std::size_t length = std::clamp(outSize, keltlegacy::headerSize, whole.size());
        EXPECT_EQ(compress(pixels, 16, 2, 32, 32, outSize), Bytes(whole.begin(), whole.begin() + length))
            << outSize;
    }
}

TEST(LegacyCoderTest, WhatItCannotCodeGivesTheHeader) {
    const Bytes pixels(64, 1);
    EXPECT_EQ(compress(pixels, 300, 4, 4, 2, 100), (Bytes{'K', 'T', '1', '0', 4, 44, 4, 0, 2, 0}));
    EXPECT_EQ(compress(pixels, 8, 1, 0, 2, 100).size(), keltlegacy::headerSize);
    EXPECT_EQ(compress(pixels, 8, 1, 2, -1, 100).size(), keltlegacy::headerSize);

    Bytes out(1000);
    keltlegacy::Compression compression(pixels.data(), 8, 1, 8, 8);
    compression.stop();
    EXPECT_GT(compression.CompressTo(out.data(), out.size()), keltlegacy::headerSize);
    compression.kill();
    EXPECT_EQ(compression.CompressTo(out.data(), out.size()), keltlegacy::headerSize);
}

/// A picture of one row has no levels and is coded as it is: two planes, worked out by hand.
TEST(LegacyCoderTest, StreamWorkedOutByHand) {
    const Bytes pixels{2, 0, 0, 3};  // 4 x 1, no levels; top plane 1
    // T = 1 in 8 bits. Plane 1: no refinement; two of four significant, k = 0 in 5 bits;
    // 1 + sign, two runs of one zero: 0 0, 1 + sign.
    // Plane 0: refinement 0, 1; none of two candidates significant, k = 2; one closing zero.
    const char* bits =
        "10000000"
        "00000"
        "10"
        "00"
        "10"
        "01"
        "01000"
        "0";
    Bytes expected{'K', 'T', '1', '0', 1, 2, 4, 0, 1, 0};
    for (std::size_t i = 0; bits[i] != '\0'; ++i) {
        if (i % 8 == 0) expected.push_back(0);
        if (bits[i] == '1') expected.back() |= static_cast<std::uint8_t>(1u << (i % 8));
    }
    EXPECT_EQ(compress(pixels, 2, 1, 4, 1, 100), expected);
}

}  // namespace
