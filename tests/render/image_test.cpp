#include <cstring>
#include <numeric>

#include "render/dicomimagetemplate.h"
#include "tests/shared/testing.h"

namespace {

using Grey8 = CDicomImageTemplate<CPixelM08, CPixelDDD>;
using Grey16 = CDicomImageTemplate<CPixelM16, CPixelDDD>;
using Colour = CDicomImageTemplate<CPixelC08, CPixelCCC>;

TEST(DicomImageTest, FitsIntoATargetWithItsAspectRatio) {
    const auto fitted = [](int w, int h, int64_t tw = 128, int64_t th = 128) {
        Grey8 image;
        std::vector<unsigned char> pixels(static_cast<size_t>(w) * h);
        EXPECT_EQ(image.Create(w, h, pixels.data()), 1);
        const CSize size = image.EncapsulatedSize({tw, th});
        return std::pair(size.cx, size.cy);
    };
    using Pair = std::pair<int64_t, int64_t>;
    EXPECT_EQ(fitted(512, 256), Pair(128, 64));
    EXPECT_EQ(fitted(256, 512), Pair(64, 128));
    EXPECT_EQ(fitted(64, 64), Pair(128, 128));
    EXPECT_EQ(fitted(128, 128), Pair(128, 128));
    EXPECT_EQ(fitted(1000, 10), Pair(4096, 32)) << "fitted to 128 x 1, doubled five times";
    EXPECT_EQ(fitted(257, 1), Pair(257 * 32, 32)) << "a side that vanishes: the own size, doubled";
    EXPECT_EQ(fitted(7, 7, 7, 7), Pair(7, 7)) << "the target's own size is never doubled";
    EXPECT_EQ(fitted(255, 63), Pair(256, 62));
    EXPECT_EQ(fitted(2047, 1), Pair(65504, 32));
    EXPECT_EQ(fitted(2048, 1), Pair(32768, 16)) << "no side grows beyond 65535";
    EXPECT_EQ(fitted(1, 65535), Pair(1, 65535));
}

TEST(DicomImageTest, LinesReadZeroOutsideTheImage) {
    Words pixels(12);
    std::iota(pixels.begin(), pixels.end(), 1);
    Grey16 image;
    ASSERT_EQ(image.Create(4, 3, pixels.data()), 1);
    EXPECT_EQ(image.GetImageLine(1, 2), reinterpret_cast<unsigned char*>(&pixels[9]));
    EXPECT_EQ(image.GetImageLine(4, 0), nullptr);
    EXPECT_EQ(image.GetImageLine(0, -1), nullptr);

    const auto line = [&](int x, int y, int count) {
        Words buffer(static_cast<size_t>(count), 99);
        const auto* run = image.GetImageLine(x, y, count, reinterpret_cast<unsigned char*>(buffer.data()));
        Words values(static_cast<size_t>(count));
        std::memcpy(values.data(), run, values.size() * 2);
        EXPECT_EQ(run == reinterpret_cast<unsigned char*>(buffer.data()),
                  x < 0 || y < 0 || x + count > 4 || y > 2);
        return values;
    };
    using Line = Words;
    EXPECT_EQ(line(1, 1, 3), (Line{6, 7, 8}));
    EXPECT_EQ(line(-2, 0, 4), (Line{0, 0, 1, 2}));
    EXPECT_EQ(line(3, 0, 3), (Line{4, 0, 0})) << "never the next row's pixels";
    EXPECT_EQ(line(-1, 2, 7), (Line{0, 9, 10, 11, 12, 0, 0}));
    EXPECT_EQ(line(0, 3, 2), (Line{0, 0}));
    EXPECT_EQ(line(9, 1, 2), (Line{0, 0}));
}

TEST(DicomImageTest, WhatCannotBeMadeIsRefused) {
    Colour image;
    uint8_t pixel[3] = {};
    EXPECT_EQ(image.Create(0, 5), 0);
    EXPECT_EQ(image.Create(5, -1, pixel), 0);
    EXPECT_EQ(image.Create(1, 1, nullptr), 0);
    EXPECT_EQ(image.Create(65535, 65535), 0) << "more bytes than 32 bits count";

    CDicomImage* out = nullptr;
    int w = 8, h = 8;
    EXPECT_EQ(image.ResampleImage(&out, w, h), 0) << "an image without pixels";
    ASSERT_EQ(image.Create(1, 1, pixel), 1);
    w = 0;
    EXPECT_EQ(image.ResampleImage(&out, w, h), 0);
}

}  // namespace
