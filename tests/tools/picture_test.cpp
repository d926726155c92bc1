#include <png.h>

#include <bit>
#include <cstring>

#include "kelt4/keltcompressor.h"
#include "keltlegacy/keltcompress.h"
#include "tests/shared/testing.h"
#include "tools/picture/commands.h"
#include "tools/picture/elementheader.h"
#include "tools/picture/window.h"

namespace {

/// The pixels of a PNG as r, g, b, with its size in front; empty when it is none.
struct Png {
    unsigned width = 0, height = 0;
    Bytes rgb;
};

class PictureTest : public testing::Test {
protected:
    PictureTest() {
        // 16-bit samples: a ramp from left to right.
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x)
                m_samples.push_back(static_cast<uint16_t>(x * 10));
    }

    std::string path(const std::string& name) const { return m_folder / name; }
    void write(const std::string& name, const Bytes& bytes) const {
        std::ofstream(path(name), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    Bytes stream() const {
        dvq::kelt4::CKeltCompressor compressor(m_samples.data(), 2, 10, kWidth, kHeight);
        EXPECT_EQ(compressor.compress(0), 0);
        return Bytes(compressor.payload(), compressor.payload() + compressor.payloadSize());
    }
    /// "QXID" header and the first bytes of the stream.
    Bytes element(float intercept, float slope, float windowWidth, float center,
                  size_t length = 1 << 20) const {
        Bytes bytes{'Q', 'X', 'I', 'D', 1, 0, 0x18, 0};
        for (const float value : {intercept, slope, windowWidth, center})
            for (int shift = 0; shift < 32; shift += 8)
                bytes.push_back(static_cast<uint8_t>(std::bit_cast<uint32_t>(value) >> shift));
        const Bytes all = stream();
        bytes.insert(bytes.end(), all.begin(),
                     all.begin() + static_cast<ptrdiff_t>(std::min(length, all.size())));
        return bytes;
    }
    Png png(const std::string& name) const {
        png_image image{};
        image.version = PNG_IMAGE_VERSION;
        if (!png_image_begin_read_from_file(&image, path(name).c_str())) return {};
        image.format = PNG_FORMAT_RGB;
        Png result{image.width, image.height, Bytes(PNG_IMAGE_SIZE(image))};
        EXPECT_TRUE(png_image_finish_read(&image, nullptr, result.rgb.data(), 0, nullptr));
        return result;
    }
    int show(const std::vector<std::string>& names, const std::string& output = "") const {
        std::vector<std::string> args;
        for (const std::string& name : names)
            args.push_back(path(name));
        if (!output.empty()) args.insert(args.end(), {"-o", path(output)});
        return runShow(args);
    }

    static constexpr int kWidth = 100, kHeight = 60;
    Words m_samples;
    TemporaryFolder m_folder;
};

TEST_F(PictureTest, WindowsGreyAsTheHeaderSays) {
    // Values are sample - 100: the window is black at 200 and white at 700.
    write("a_1.t.qi4", element(-100, 1, 501, 450.5f));
    ASSERT_EQ(show({"a_1.t.qi4"}, "a.png"), 0);
    const Png picture = png("a.png");
    ASSERT_EQ(picture.width, unsigned(kWidth));
    ASSERT_EQ(picture.height, unsigned(kHeight));
    const auto grey = [&](int x) { return picture.rgb[static_cast<size_t>(5 * kWidth + x) * 3]; };
    EXPECT_EQ(grey(0), 0);
    EXPECT_EQ(grey(30), 0);
    EXPECT_NEAR(grey(55), 127, 1);
    EXPECT_EQ(grey(80), 255);
    EXPECT_EQ(grey(99), 255);
}

TEST_F(PictureTest, MonochromeOneIsTheRightWayUp) {
    // Stored samples of MONOCHROME1 are turned over: 0 stands for the largest value, 990, and the slope is
    // negative. Where the value is small the display is bright, which is where the stored sample is large.
    write("a_1.t.qi4", element(990, -1, -400, 500));
    ASSERT_EQ(show({"a_1.t.qi4"}, "a.png"), 0);
    const Png picture = png("a.png");
    EXPECT_EQ(picture.rgb.front(), 0);
    EXPECT_EQ(picture.rgb[(kWidth - 1) * 3], 255);
}

TEST_F(PictureTest, EveryKindOfFileShowsTheFrame) {
    const Bytes whole = stream();
    const size_t cut = whole.size() / 2;
    write("a_1.p.qi4", element(0, 1, 991, 495.5f, 40));
    write("a_1.t.qi4", element(0, 1, 991, 495.5f, cut));
    write("a_1.f.qi4", Bytes(whole.begin() + static_cast<ptrdiff_t>(cut), whole.end()));
    Bytes raw(m_samples.size() * 2), thumbnail(20000);
    std::memcpy(raw.data(), m_samples.data(), raw.size());
    write("a_1.raw", raw);
    thumbnail.resize(
        keltcompress(m_samples.data(), 10, 2, kWidth, kHeight, thumbnail.data(), thumbnail.size()));
    write("a_1.128x128t.cw1", thumbnail);
    std::ofstream(path("a.desc"))
        << "1 100 60 mono 16 10 0 1 991 495.5 0.5 0.5  0\\0\\0 1\\0\\0\\0\\1\\0 L\\P\n";

    ASSERT_EQ(runShow({path("a_1.f.qi4"), "--reduce", "2", "-o", path("r.png")}), 0);
    EXPECT_EQ(png("r.png").width, 25U);
    EXPECT_EQ(png("r.png").height, 15U);
    EXPECT_EQ(runShow({path("a_1.raw"), "--reduce", "2"}), 4) << "only streams have smaller pictures";
    ASSERT_EQ(show({"a_1.f.qi4"}, "f.png"), 0);
    ASSERT_EQ(show({"a_1.raw"}, "raw.png"), 0);
    ASSERT_EQ(show({"a_1.128x128t.cw1"}, "cw1.png"), 0);
    EXPECT_FALSE(png("f.png").rgb.empty());
    EXPECT_EQ(png("f.png").rgb, png("raw.png").rgb);
    EXPECT_EQ(png("f.png").rgb, png("cw1.png").rgb) << "the thumbnail takes the window of its frame";

    ASSERT_EQ(show({"a_1.p.qi4", "a_1.t.qi4", "a_1.f.qi4", "a_1.128x128t.cw1"}, "all.png"), 0);
    const Png all = png("all.png");
    EXPECT_EQ(all.height, unsigned(kHeight));
    EXPECT_EQ(all.width, 4u * kWidth + 3 * 8);
    EXPECT_EQ(runInfo({path("a_1.p.qi4"), path("a_1.f.qi4"), path("a_1.128x128t.cw1"), path("a_1.raw")}), 0);
}

TEST_F(PictureTest, WhatCannotBeShownIsSaid) {
    write("good_1.t.qi4", element(0, 1, 991, 495.5f));
    write("short_1.t.qi4", {'Q', 'X', 'I', 'D', 1, 0});
    write("headeronly_1.t.qi4", element(0, 1, 1, 1, 0));
    write("rest_1.f.qi4", {1, 2, 3});
    write("empty_1.cw1", {});
    write("lonely_1.raw", {1, 2});
    write("text.txt", {'a'});
    const auto told = [&](const char* name) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(runShow({path(name)}), 4) << name;
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_TRUE(contains(told("missing_1.raw"), "missing_1.raw: no such file"));
    EXPECT_TRUE(contains(told("s.index#0"), "s.index#0: no frame of a pack"));
    for (const char* name : {"short_1.t.qi4", "headeronly_1.t.qi4", "rest_1.f.qi4", "empty_1.cw1",
                             "lonely_1.raw", "text.txt", "missing_1.t.qi4", "."})
        for (const auto command : {runShow, runInfo}) {
            testing::internal::CaptureStderr();
            EXPECT_EQ(command({path(name)}), 4) << name;
            EXPECT_TRUE(contains(testing::internal::GetCapturedStderr(), ": ")) << name;
        }
    EXPECT_EQ(show({"good_1.t.qi4", "empty_1.cw1"}, "some.png"), 1);
    EXPECT_FALSE(png("some.png").rgb.empty());
    EXPECT_EQ(show({"good_1.t.qi4"}, "no/such/folder.png"), 4);
    std::filesystem::create_symlink("/dev/full", path("full.png"));
    testing::internal::CaptureStderr();
    EXPECT_EQ(show({"good_1.t.qi4"}, "full.png"), 4);
    EXPECT_TRUE(contains(testing::internal::GetCapturedStderr(), "full.png: No space left on device"));
    EXPECT_TRUE(std::filesystem::is_symlink(path("full.png"))) << "the way to a device is removed";

    std::ofstream(path("bad.desc"))
        << "1 0 -3 mono 16 10 0 1 991 495.5\n2 100 60 mono\n3 100 60 mono 16 10 0 1 9 4\n";
    for (const char* name : {"bad_1.raw", "bad_2.raw", "bad_3.raw", "bad_4.raw"}) {
        write(name, Bytes(10));
        EXPECT_EQ(show({name}), 4) << name;
    }
    EXPECT_EQ(runShow({}), 2);
    EXPECT_EQ(runShow({"--no-such-option"}), 2);
    EXPECT_EQ(runShow({"--help"}), 0);
    EXPECT_EQ(runInfo({"--help"}), 0);
    testing::internal::CaptureStdout();
    EXPECT_EQ(runInfo({"--syntaxes"}), 0);
    EXPECT_TRUE(
        contains(testing::internal::GetCapturedStdout(),
                 "\n1.2.840.10008.1.2.4.202  High-Throughput JPEG 2000 with RPCL Options (Lossless only)\n"));
    EXPECT_EQ(runShow({"--syntaxes"}), 2);
}

TEST(WindowTest, OddWindowsStillGiveAPicture) {
    const Words samples{0, 10, 65535};
    EXPECT_EQ(picture::applyWindow(samples, {0, 1, 0, 10, false}), (Bytes{0, 255, 255}));
    EXPECT_EQ(picture::applyWindow(samples, {0, 1, 0, 10, true}), (Bytes{255, 0, 0}));
    const double nan = std::bit_cast<float>(0x7FC00000u);
    EXPECT_EQ(picture::applyWindow(samples, {nan, nan, 5, 10, false}), (Bytes{0, 0, 0}));
    EXPECT_EQ(picture::applyWindow(samples, {0, 1, nan, nan, false}), (Bytes{0, 0, 0}));
    EXPECT_EQ(picture::applyWindow(samples, {0, 1, 5, nan, false}), (Bytes{0, 0, 0}));
    EXPECT_EQ(picture::applyWindow(samples, picture::windowOverRange(samples)).back(), 255);
}

}  // namespace
