#include <array>
#include <initializer_list>
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
    Words wide(65536);
    wide[0x1234] = 0xBEEF;
    p.lut = wide.data();
    EXPECT_EQ(paint<Grey16>({0x34, 0x12}, 1, 1, p), (Bytes{0xEF, 0xBE}));
}

using Values = std::vector<unsigned>;

/// One picture of channels interleaved, in plain integers.
struct Plain {
    int w, h, channels;
    Values values;
};

template <class Pixel, class Accumulator>
Plain painted(const Plain& src, int zw, int zh) {
    using Channel = typename Pixel::Channel;
    const std::vector<Channel> samples(src.values.begin(), src.values.end());
    const auto* first = reinterpret_cast<const uint8_t*>(samples.data());
    const CSize size{zw, zh};
    const Bytes out = paint<CDicomImageTemplate<Pixel, Accumulator>>(
        Bytes(first, first + samples.size() * sizeof(Channel)), src.w, src.h,
        {size, {}, size, CRect({}, size), ORIENTATION_NORMAL, 1});
    const auto* channels = reinterpret_cast<const Channel*>(out.data());
    return {zw, zh, src.channels, Values(channels, channels + out.size() / sizeof(Channel))};
}

Plain noise(int w, int h, int channels, unsigned largest) {
    std::mt19937 random(static_cast<unsigned>(w * 31 + h));
    Plain out{w, h, channels, Values(static_cast<size_t>(w) * h * channels)};
    for (unsigned& value : out.values)
        value = random() % 4 == 0 ? largest : random() % (largest + 1);
    return out;
}

uint64_t sumOf(const Plain& picture) {
    Bytes bytes;
    for (const unsigned value : picture.values) {
        bytes.push_back(static_cast<uint8_t>(value));
        bytes.push_back(static_cast<uint8_t>(value >> 8));
    }
    return checksum(bytes);
}

struct Case {
    int w, h, zw, zh;
    uint64_t bytes, words, colours;  ///< sums of the pictures that noise is to become
};

/// The sums were made by walking along both axes with counters for what is left of a source pixel.
void checkAllFormats(std::initializer_list<Case> cases) {
    for (const auto& [w, h, zw, zh, bytes, words, colours] : cases) {
        SCOPED_TRACE(testing::Message() << w << " x " << h << " to " << zw << " x " << zh);
        EXPECT_EQ(sumOf(painted<CPixelM08, CPixelDDD>(noise(w, h, 1, 255), zw, zh)), bytes);
        EXPECT_EQ(sumOf(painted<CPixelM16, CPixelDDD>(noise(w, h, 1, 65535), zw, zh)), words);
        EXPECT_EQ(sumOf(painted<CPixelC08, CPixelCCC>(noise(w, h, 3, 255), zw, zh)), colours);
    }
}

TEST(ResampleTest, AveragesWhatAPixelCovers) {
    // A pixel of the result covers one and a half: (0 * 2 + 90) / 3 and (90 + 30 * 2) / 3.
    const Plain three{3, 1, 1, {0, 90, 30}};
    EXPECT_EQ((painted<CPixelM08, CPixelDDD>(three, 2, 1).values), (Values{30, 50}));
    checkAllFormats({
        {512, 512, 128, 128, 0xD289AD9C8D3CA918, 0x37C1E1D2456AC1E6, 0xB31CE4657B1DD460},
        {200, 300, 85, 128, 0xC4475C78E81E4553, 0x3E737889ED8AE2D1, 0x9B344BA07FC74889},
        {129, 128, 128, 127, 0x360D908ECD0DD549, 0xA62AE933CE0D64AE, 0xCB68FE218662975A},
        {256, 96, 128, 48, 0x314F88216B5B6362, 0xA22910F5A087BFE1, 0xA6C20A8FD09EF1D1},
        {7, 50, 3, 60, 0xC9799678B890012F, 0x94AD5D94392AB3AB, 0xD59BE00AE85466BC},
        {1000, 3, 90, 5, 0x2E20B78B68A7A08D, 0x8DCC2186F6402B4C, 0xA34D2E6C485E4F81},
        {33, 31, 1, 1, 0x09756207B5FDBC24, 0x0AEB9607B73BFAE2, 0xD03DD8E7C68F75A6},
    });
}

TEST(ResampleTest, AveragesLargeImagesOnCoarserGrids) {
    // Halved once; quartered; and with an odd zoom, whose half is cut, so that the grid runs past the last
    // row.
    const struct {
        int w, h, zw, zh;
        uint64_t sum;
    } cases[] = {
        {4110, 4100, 128, 127, 0x8497748CEA24FE9A},
        {8200, 4200, 128, 65, 0x3A5FF5287E22DBEE},
        {6000, 5700, 129, 57, 0x76BD11D19AECD14A},
    };
    for (const auto& [w, h, zw, zh, sum] : cases)
        EXPECT_EQ(sumOf(painted<CPixelM16, CPixelDDD>(noise(w, h, 1, 65535), zw, zh)), sum)
            << w << " x " << h;
}

TEST(ResampleTest, InterpolatesBetweenCentres) {
    const Plain four{2, 2, 1, {0, 100, 50, 201}};
    EXPECT_EQ((painted<CPixelM08, CPixelDDD>(four, 4, 4).values),
              (Values{0, 0, 50, 100, 0, 0, 50, 100, 25, 25, 87, 150, 50, 50, 125, 201}));
    checkAllFormats({
        {64, 64, 128, 128, 0x8C3DD5974511C5BE, 0x91356FBF1D70BB4A, 0xDB5B278C33AD6CF3},
        {128, 128, 128, 128, 0x1B3DA06DFE677316, 0x4B7F84D22F428478, 0x26DE9BC9BD96343E},
        {100, 77, 128, 98, 0xAFF334F9136E4528, 0xA47327FCD9DD7F98, 0xEA120661DF31F134},
        {50, 3, 4096, 245, 0xE19AD60C6CB4B342, 0xF4C6AA8E0571D7C5, 0xA6D98871EA30CC00},
        {10, 10, 20, 21, 0xABFD4424FDBF6C4A, 0x68A6EC44F5865748, 0x62839FEAF88FD60D},
        {1, 1, 32, 32, 0x92B3CA5F76DB1325, 0x559E0FE1406A3B25, 0xCAC8FE4D35FC6325},
        {1, 7, 40, 300, 0xAE4DDF3E1509E065, 0x4A0AC11A3EE83865, 0x3C6169C57DE15625},
    });
}

TEST(ResampleTest, RepeatsAtScaleOne) {
    const Plain wide = noise(255, 63, 1, 255);
    Values expected;
    for (size_t y = 0; y < 62; ++y)
        for (size_t x = 0; x < 256; ++x)
            expected.push_back(x < 255 ? wide.values[y * 255 + x] : 0);
    EXPECT_EQ((painted<CPixelM08, CPixelDDD>(wide, 256, 62).values), expected);
}

}  // namespace
