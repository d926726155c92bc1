#include <array>
#include <memory>
#include <random>

#include "render/dicomimagetemplate.h"
#include "tests/shared/testing.h"

namespace {

using Grey8 = CDicomImageTemplate<CPixelM08, CPixelDDD>;
using Colour = CDicomImageTemplate<CPixelC08, CPixelCCC>;
struct Painting {
    CSize dst;
    CPoint offset;
    CSize zoom;
    CRect clip;
    ORIENTATION orientation = ORIENTATION_NORMAL;
    int smooth = 0;
    unsigned long background = 0;
    int lutMode = 0;
    void* lut = nullptr;
};

template <class Image>
Bytes paint(const Bytes& pixels, int w, int h, const Painting& p) {
    Bytes copy = pixels;
    Image image;
    EXPECT_EQ(image.Create(w, h, copy.data()), 1);
    CDicomImage* out = nullptr;
    EXPECT_EQ(image.PaintImage(p.dst, p.offset, p.zoom, p.clip, p.orientation, p.lutMode, p.lut, p.background,
                               p.smooth, image.GetColorType(), &out),
              1);
    const std::unique_ptr<CDicomImage> owner(out);
    return out ? Bytes(out->pixels(), out->pixels() + out->bufferSize()) : Bytes();
}

Bytes letters(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

TEST(OrientationTest, EveryTurnOfSixPixels) {
    // abc
    // def
    const std::array<std::string, 8> expected{"abcdef", "daebfc", "fedcba", "cfbead",
                                              "cbafed", "fcebda", "defabc", "adbecf"};
    for (int o = 0; o < 8; ++o) {
        const CSize size = o % 2 ? CSize{2, 3} : CSize{3, 2};
        const Painting p{size, {}, size, CRect({}, size), static_cast<ORIENTATION>(o)};
        EXPECT_EQ(paint<Grey8>(letters("abcdef"), 3, 2, p), letters(expected[o])) << o;
    }
}

/// A clipped and shifted painting is the same part of the whole painting, whatever the mode.
TEST(OrientationTest, ClippingChangesNoPixel) {
    constexpr int kWidth = 23, kHeight = 17;
    constexpr unsigned char kBackground = 7;
    Bytes pixels(kWidth * kHeight);
    std::mt19937 random(3);
    for (unsigned char& pixel : pixels)
        pixel = static_cast<unsigned char>(random());

    const CSize zooms[] = {{11, 9}, {60, 50}, {46, 34}, {23, 17}, {24, 16}, {20, 40}};
    for (const CSize zoom : zooms)
        for (int o = 0; o < 8; ++o)
            for (const int smooth : {0, 1}) {
                const CSize turned = o % 2 ? CSize{zoom.cy, zoom.cx} : zoom;
                Painting p{turned, {}, turned, CRect({}, turned), static_cast<ORIENTATION>(o), smooth};
                const Bytes whole = paint<Grey8>(pixels, kWidth, kHeight, p);

                p.dst = {30, 30};
                p.offset = {-3, 4};
                p.clip = {2, 1, 25, 28};
                p.background = kBackground * 0x010101ul;
                const Bytes part = paint<Grey8>(pixels, kWidth, kHeight, p);
                for (int y = 0; y < 30; ++y)
                    for (int x = 0; x < 30; ++x) {
                        const int64_t wx = x + 3, wy = y - 4;
                        const bool painted = x >= 2 && x < 25 && y >= 1 && y < 28 && wx < turned.cx &&
                                             wy >= 0 && wy < turned.cy;
                        const int expected = painted ? whole[wy * turned.cx + wx] : kBackground;
                        ASSERT_EQ(part[y * 30 + x], expected) << x << ", " << y << " orientation " << o
                                                              << " smooth " << smooth << " zoom " << zoom.cx;
                    }
            }
}

TEST(OrientationTest, NothingVisibleLeavesTheBackground) {
    Painting p{{2, 2}, {5, 0}, {2, 2}, {0, 0, 2, 2}};
    p.background = 0x30201008;  // r 8, g 16, b 32: grey 18
    EXPECT_EQ(paint<Grey8>(letters("abcd"), 2, 2, p), Bytes(4, 18));
    EXPECT_EQ(paint<Colour>(Bytes(12), 2, 2, p), (Bytes{8, 16, 32, 8, 16, 32, 8, 16, 32, 8, 16, 32}));
    p = {{2, 2}, {}, {2, 2}, {1, 1, 2, 2}};
    EXPECT_EQ(paint<Grey8>(letters("abcd"), 2, 2, p), (Bytes{0, 0, 0, 'd'}));
}

TEST(OrientationTest, ResultsAreLookedUp) {
    Bytes inverse(256);
    for (int i = 0; i < 256; ++i)
        inverse[i] = static_cast<unsigned char>(255 - i);
    Painting p{{1, 1}, {}, {1, 1}, {0, 0, 1, 1}};
    p.lut = inverse.data();
    EXPECT_EQ(paint<Grey8>({200}, 1, 1, p), Bytes{55});
    EXPECT_EQ(paint<Colour>({10, 20, 31}, 1, 1, p), (Bytes{245, 235, 224}));
    p.lutMode = 1;
    EXPECT_EQ(paint<Colour>({10, 20, 31}, 1, 1, p), (Bytes{235, 235, 235}));

    using Grey16 = CDicomImageTemplate<CPixelM16, CPixelDDD>;
    std::vector<uint16_t> wide(65536);
    wide[0x1234] = 0xBEEF;
    p.lut = wide.data();
    EXPECT_EQ(paint<Grey16>({0x34, 0x12}, 1, 1, p), (Bytes{0xEF, 0xBE}));
}

}  // namespace
