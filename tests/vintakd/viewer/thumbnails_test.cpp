#include "keltlegacy/decoder.h"
#include "tests/vintakd/viewer/conversion.h"
#include "vintakd/viewer/thumbnailbudget.h"
#include "vintakd/viewer/vintakprocess.h"
#include "vintakd/viewer/vintakrawimage.h"

namespace {

constexpr unsigned kPixelsAndThumbnails = 0;

class ThumbnailsTest : public FrameFilesTest {
protected:
    size_t compressedSize() const { return file(".128x128t.cw1").size(); }
    keltlegacy::Picture decoded() const {
        keltlegacy::Picture picture;
        EXPECT_EQ(keltlegacy::decode(file(".128x128t.cw1"), picture), keltlegacy::DecodeStatus::Ok);
        return picture;
    }
};

TEST_F(ThumbnailsTest, AreAveragedAndCompressed) {
    const Bytes samples = softPicture(256, 256, 1, 8);
    makeObject(256, 256, 1, samples);
    configure("KELT_PERCENT = 100t\n");
    ASSERT_TRUE(convert(kPixelsAndThumbnails));
    Bytes expected;
    for (int y = 0; y < 128; ++y)
        for (int x = 0; x < 128; ++x) {
            const int at = y * 2 * 256 + x * 2;
            expected.push_back(static_cast<uint8_t>(
                (samples[at] + samples[at + 1] + samples[at + 256] + samples[at + 257]) / 4));
        }
    EXPECT_EQ(file(".128x128t.raw"), expected);
    const keltlegacy::Picture picture = decoded();
    EXPECT_TRUE(picture.complete);
    EXPECT_EQ(picture.samples, expected);
    EXPECT_EQ(picture.bitsUsed, 8);
}

TEST_F(ThumbnailsTest, FitTheFrame) {
    struct Case {
        int columns, rows, bytesPerPixel, width, height;
    };
    for (const auto& [columns, rows, bytesPerPixel, width, height] :
         {Case{512, 256, 2, 128, 64}, Case{1000, 10, 1, 4096, 32}, Case{64, 96, 3, 85, 128}}) {
        makeObject(columns, rows, bytesPerPixel,
                   softPicture(columns, rows, bytesPerPixel, bytesPerPixel == 2 ? 12 : 8));
        ASSERT_TRUE(convert(kPixelsAndThumbnails));
        EXPECT_EQ(file(".128x128t.raw").size(), size_t(width) * height * bytesPerPixel);
        const keltlegacy::Picture picture = decoded();
        EXPECT_EQ(picture.width, width);
        EXPECT_EQ(picture.height, height);
        EXPECT_EQ(picture.bytesPerPixel, bytesPerPixel);
    }
}

TEST_F(ThumbnailsTest, KeepToTheBudget) {
    makeObject(512, 512, 2, softPicture(512, 512, 2, 16), "CT");
    ASSERT_TRUE(convert(kPixelsAndThumbnails));
    EXPECT_EQ(compressedSize(), 5242u) << "1 % of the frame";
    configure("KELT_PERCENT=2\nKELT_PERCENT_MR=\"5t\"\n");
    ASSERT_TRUE(convert(kPixelsAndThumbnails));
    EXPECT_EQ(compressedSize(), 10485u);

    makeObject(512, 512, 1, softPicture(512, 512, 1, 8), "MR");
    ASSERT_TRUE(convert(kPixelsAndThumbnails));
    EXPECT_EQ(compressedSize(), 819u) << "5 % of 128 x 128 bytes";

    makeObject(20, 20, 1, softPicture(20, 20, 1, 8), "CT");
    configure("");
    ASSERT_TRUE(convert(kPixelsAndThumbnails));
    EXPECT_EQ(compressedSize(), 10u) << "a budget of 4 bytes still gives the header";
}

TEST_F(ThumbnailsTest, BudgetsAreReadAsPeopleWriteThem) {
    const auto budget = [&](const std::string& text, const char* modality = "US") {
        configure(text);
        return ThumbnailBudget::read(m_folder.path().c_str(), modality).bytes(10'000, 2'000);
    };
    EXPECT_EQ(budget("KELT_PERCENT=2.55"), 255u);
    EXPECT_EQ(budget("KELT_PERCENT=3 t"), 60u);
    EXPECT_EQ(budget("KELT_PERCENT=3T"), 300u) << "only a small t refers to the thumbnail";
    EXPECT_EQ(budget("KELT_PERCENT=3\nKELT_PERCENT_US=4"), 400u);
    EXPECT_EQ(budget("KELT_PERCENT=3\nKELT_PERCENT_US=4", "CT"), 300u);
    EXPECT_EQ(budget("KELT_PERCENT=much"), 100u);
    EXPECT_EQ(budget("KELT_PERCENT="), 100u);
    EXPECT_EQ(budget("KELT_PERCENT=1e300"), 2'000u) << "never more than the thumbnail's bytes";
    EXPECT_EQ(budget("KELT_PERCENT=-5"), 0u);
    EXPECT_EQ(budget("KELT_PERCENT=nan"), 0u);
    EXPECT_EQ(ThumbnailBudget::read(nullptr, "US").bytes(10'000, 2'000), 100u);
    EXPECT_EQ(ThumbnailBudget::read("/no/such/folder", "US").bytes(10'000, 2'000), 100u);
}

}  // namespace
