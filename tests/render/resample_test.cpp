#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>

#include "render/dicomimagetemplate.h"

namespace {

using Values = std::vector<unsigned>;

/// One picture of channels interleaved, in plain integers.
struct Plain {
    int w, h, channels;
    Values values;

    /// 0 outside.
    double at(std::int64_t x, std::int64_t y, int c) const {
        return x < w && y < h ? values[static_cast<std::size_t>((y * w + x) * channels + c)] : 0;
    }
    /// The edge outside.
    double near(std::int64_t x, std::int64_t y, int c) const {
        return at(std::clamp<std::int64_t>(x, 0, w - 1), std::clamp<std::int64_t>(y, 0, h - 1), c);
    }
};

/// Averaging by walking along both axes with a counter for what is left of the source pixel.
Plain average(const Plain& src, int zw, int zh) {
    std::int64_t sw = src.w, sh = src.h, gw = zw, gh = zh, product = sw * sh;
    while (product > 16843008) {
        sh /= 2;
        gh /= 2;
        if (product < 0x2020202) {
            product /= 2;
            break;
        }
        product /= 4;
        sw /= 2;
        gw /= 2;
    }
    struct Part {
        int destination;
        std::int64_t source, units;
    };
    const auto parts = [](int count, std::int64_t perDestination, std::int64_t perSource) {
        std::vector<Part> all;
        std::int64_t source = 0, left = perSource;
        for (int i = 0; i < count; ++i)
            for (std::int64_t wanted = perDestination; wanted > 0;) {
                const std::int64_t units = std::min(wanted, left);
                all.push_back({i, source, units});
                wanted -= units;
                left -= units;
                if (left == 0) {
                    ++source;
                    left = perSource;
                }
            }
        return all;
    };
    std::vector<double> sums(static_cast<std::size_t>(zw) * zh * src.channels);
    const auto across = parts(zw, sw, gw);
    for (const Part& row : parts(zh, sh, gh))
        for (const Part& column : across)
            for (int c = 0; c < src.channels; ++c)
                sums[(static_cast<std::size_t>(row.destination) * zw + column.destination) * src.channels +
                     c] +=
                    src.at(column.source, row.source, c) * static_cast<double>(column.units * row.units);
    Plain out{zw, zh, src.channels, {}};
    for (const double sum : sums)
        out.values.push_back(static_cast<unsigned>(sum / static_cast<double>(product)));
    return out;
}

/// Interpolation by walking along both axes with falling phases.
Plain interpolate(const Plain& src, int zw, int zh) {
    const double scale = double(zw + zh) / double(src.w + src.h);
    const int k = static_cast<int>(scale + 0.01);
    std::int64_t gx = k, gy = k, sx = 1, sy = 1;
    if (std::fabs(scale - k) > 0.01) {
        gx = zw, sx = src.w, gy = zh, sy = src.h;
        while (gx > 4095)
            gx /= 2, sx /= 2;
        while (gy > 4095)
            gy /= 2, sy /= 2;
    }
    Plain out{zw, zh, src.channels, {}};
    std::int64_t fy = gy / 2, row = 0;
    for (int y = 0; y < zh; ++y) {
        std::int64_t fx = gx / 2, column = 0;
        for (int x = 0; x < zw; ++x) {
            for (int c = 0; c < src.channels; ++c) {
                const double a = src.near(column - 1, row - 1, c), b = src.near(column, row - 1, c),
                             cc = src.near(column - 1, row, c), d = src.near(column, row, c);
                const double sum = a * double(fy * fx) + b * double(fy * (gx - fx)) +
                                   cc * double((gy - fy) * fx) + d * double((gx - fx) * (gy - fy));
                out.values.push_back(static_cast<unsigned>(sum / double(gx * gy)));
            }
            fx -= sx;
            if (fx < 1) fx += gx, ++column;
        }
        fy -= sy;
        if (fy < 1) fy += gy, ++row;
    }
    return out;
}

template <class Pixel, class Accumulator>
Plain painted(const Plain& src, int zw, int zh) {
    using Channel = typename Pixel::Channel;
    std::vector<Channel> samples(src.values.begin(), src.values.end());
    CDicomImageTemplate<Pixel, Accumulator> image;
    EXPECT_EQ(image.Create(src.w, src.h, samples.data()), 1);
    CDicomImage* raw = nullptr;
    const CSize size{zw, zh};
    EXPECT_EQ(image.PaintImage(size, {}, size, CRect({}, size), ORIENTATION_NORMAL, 0, nullptr, 0, 1,
                               Pixel::colorType, &raw),
              1);
    const std::unique_ptr<CDicomImage> out(raw);
    const auto* first = reinterpret_cast<const Channel*>(out->pixels());
    return {zw, zh, src.channels, Values(first, first + out->bufferSize() / sizeof(Channel))};
}

Plain noise(int w, int h, int channels, unsigned largest) {
    std::mt19937 random(static_cast<unsigned>(w * 31 + h));
    Plain out{w, h, channels, Values(static_cast<std::size_t>(w) * h * channels)};
    for (unsigned& value : out.values)
        value = random() % 4 == 0 ? largest : random() % (largest + 1);
    return out;
}

struct Case {
    int w, h, zw, zh;
};

template <class Reference>
void compareAllFormats(const Case& c, Reference reference) {
    const Plain bytes = noise(c.w, c.h, 1, 255), words = noise(c.w, c.h, 1, 65535),
                colours = noise(c.w, c.h, 3, 255);
    EXPECT_EQ((painted<CPixelM08, CPixelDDD>(bytes, c.zw, c.zh).values), reference(bytes, c.zw, c.zh).values)
        << c.w << " x " << c.h << " to " << c.zw << " x " << c.zh;
    EXPECT_EQ((painted<CPixelM16, CPixelDDD>(words, c.zw, c.zh).values), reference(words, c.zw, c.zh).values)
        << c.w << " x " << c.h << " to " << c.zw << " x " << c.zh;
    EXPECT_EQ((painted<CPixelC08, CPixelCCC>(colours, c.zw, c.zh).values),
              reference(colours, c.zw, c.zh).values)
        << c.w << " x " << c.h << " to " << c.zw << " x " << c.zh;
}

TEST(ResampleTest, AveragesWhatAPixelCovers) {
    for (const Case& c :
         {Case{512, 512, 128, 128}, Case{200, 300, 85, 128}, Case{129, 128, 128, 127}, Case{256, 96, 128, 48},
          Case{7, 50, 3, 60}, Case{1000, 3, 90, 5}, Case{33, 31, 1, 1}})
        compareAllFormats(c, average);
}

TEST(ResampleTest, AveragesLargeImagesOnCoarserGrids) {
    // Halved once; quartered; and with an odd zoom, whose half is cut, so that the grid runs past the last
    // row.
    for (const Case& c : {Case{4110, 4100, 128, 127}, Case{8200, 4200, 128, 65}, Case{6000, 5700, 129, 57}}) {
        const Plain words = noise(c.w, c.h, 1, 65535);
        EXPECT_EQ((painted<CPixelM16, CPixelDDD>(words, c.zw, c.zh).values),
                  average(words, c.zw, c.zh).values)
            << c.w << " x " << c.h;
    }
}

TEST(ResampleTest, InterpolatesBetweenCentres) {
    const Plain four{2, 2, 1, {0, 100, 50, 201}};
    EXPECT_EQ((painted<CPixelM08, CPixelDDD>(four, 4, 4).values),
              (Values{0, 0, 50, 100, 0, 0, 50, 100, 25, 25, 87, 150, 50, 50, 125, 201}));
    for (const Case& c :
         {Case{64, 64, 128, 128}, Case{128, 128, 128, 128}, Case{100, 77, 128, 98}, Case{50, 3, 4096, 245},
          Case{10, 10, 20, 21}, Case{1, 1, 32, 32}, Case{1, 7, 40, 300}})
        compareAllFormats(c, interpolate);
}

TEST(ResampleTest, RepeatsAtScaleOne) {
    const Plain wide = noise(255, 63, 1, 255);
    Values expected;
    for (int y = 0; y < 62; ++y)
        for (int x = 0; x < 256; ++x)
            expected.push_back(static_cast<unsigned>(wide.at(x, y, 0)));
    EXPECT_EQ((painted<CPixelM08, CPixelDDD>(wide, 256, 62).values), expected);
}

TEST(ResampleTest, ReportsTheSizeItChose) {
    std::vector<std::uint16_t> pixels(512 * 256);
    for (std::size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<std::uint16_t>(i % 512 / 4);
    CDicomImageTemplate<CPixelM16, CPixelDDD> image;
    ASSERT_EQ(image.Create(512, 256, pixels.data()), 1);
    CDicomImage* raw = nullptr;
    int w = 128, h = 128;
    ASSERT_EQ(image.ResampleImage(&raw, w, h), 1);
    const std::unique_ptr<CDicomImage> out(raw);
    EXPECT_EQ(w, 128);
    EXPECT_EQ(h, 64);
    ASSERT_EQ(out->bufferSize(), 128u * 64 * 2);
    for (int x = 0; x < 128; ++x)
        EXPECT_EQ(*reinterpret_cast<std::uint16_t*>(out->GetImageLine(x, 63)), x);
}

}  // namespace
