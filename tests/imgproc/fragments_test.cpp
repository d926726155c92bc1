// Compressed frames: what is looked at before the toolkit's decoders see them, and which frames are found.
#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcrledrg.h>
#include <dcmtk/dcmdata/dcrleerg.h>
#include <gtest/gtest.h>

#include "imgproc/fragmentcheck.h"
#include "tests/imgproc/capturingprocess.h"
#include "tests/imgproc/testobject.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

DcmPixelItem& fill(DcmPixelItem& item, const Bytes& bytes) {
    EXPECT_TRUE(item.putUint8Array(bytes.data(), bytes.size()).good());
    return item;
}

bool runLengthsPass(const std::vector<std::uint32_t>& numbers, std::uint64_t available) {
    Bytes bytes(64 + 36, 0);
    for (size_t i = 0; i < numbers.size(); ++i)
        for (size_t k = 0; k < 4; ++k)
            bytes[4 * i + k] = static_cast<std::uint8_t>(numbers[i] >> 8 * k);
    DcmPixelItem item(DCM_PixelItemTag);
    return checkRunLengthHeader(fill(item, bytes), available).good();
}

bool markersPass(Bytes bytes) {
    bytes.resize(40, 0);
    DcmPixelItem item(DCM_PixelItemTag);
    return checkJpegMarkers(fill(item, bytes)).good();
}

}  // namespace

TEST(Fragments, RunLengthSegmentsMustBeThere) {
    EXPECT_TRUE(runLengthsPass({1, 64}, 100));
    EXPECT_TRUE(runLengthsPass({3, 64, 80, 300}, 301)) << "the last one lies in a further fragment";
    EXPECT_FALSE(runLengthsPass({3, 64, 80, 300}, 300));
    EXPECT_FALSE(runLengthsPass({2, 80, 64}, 100));
    EXPECT_FALSE(runLengthsPass({2, 64, 64}, 100));
    EXPECT_FALSE(runLengthsPass({1, 8}, 100)) << "within the header";
    EXPECT_FALSE(runLengthsPass({2, 64, 0xFFFFFFF0}, 100));
    EXPECT_FALSE(runLengthsPass({0}, 100));
    EXPECT_FALSE(runLengthsPass({16, 64}, 100));
    DcmPixelItem item(DCM_PixelItemTag);
    EXPECT_FALSE(checkRunLengthHeader(fill(item, Bytes(62, 0)), 62).good());
}

TEST(Fragments, AJpegStreamMayNotStopTheSearchForItsFrame) {
    EXPECT_TRUE(markersPass({0xFF, 0xD8, 0xFF, 0xC0, 0, 11, 8}));
    EXPECT_TRUE(markersPass({0xFF, 0xD8, 0xFF, 0xE0, 0, 4, 0xFF, 0x01, 0xFF, 0xC0})) << "inside a segment";
    EXPECT_FALSE(markersPass({0xFF, 0xD8, 0xFF, 0xE0, 0, 4, 1, 2, 0xFF, 0x01}));
    EXPECT_FALSE(markersPass({0xFF, 0xD8, 0xFF, 0x01}));
    EXPECT_FALSE(markersPass({0xFF, 0xD8, 0xFF, 0xFF, 0xFF, 0x01}));
    EXPECT_FALSE(markersPass({0xFF, 0xD8, 0xFF, 0x30, 0xFF, 0xD0, 0xFF, 0x01}));
    EXPECT_TRUE(markersPass({0xFF, 0xD8, 0xFF, 0xE0, 0xFF, 0xFF})) << "a segment beyond the end";
    EXPECT_TRUE(markersPass({}));
}

TEST(Fragments, CompressedFramesThatExistAreConverted) {
    DcmRLEDecoderRegistration::registerCodecs();
    DcmRLEEncoderRegistration::registerCodecs();
    TestObject object;
    object.describe({.rows = 2, .columns = 2, .frames = 3});
    object.pixels(Bytes{1, 1, 1, 2, 3, 3, 3, 4, 5, 5, 5, 6});
    ASSERT_TRUE(object.dataset().chooseRepresentation(EXS_RLELossless, nullptr).good());
    for (int declared : {3, 9}) {
        object.text(DCM_NumberOfFrames, std::to_string(declared).c_str());
        std::vector<double> offsets;
        DcmDataset copy(object.dataset());
        CapturingProcess process(copy);
        EXPECT_EQ(process.process(), 0) << process.failureCause();
        for (const CapturedFrame& frame : process.frames())
            offsets.push_back(frame.intercept);
        EXPECT_EQ(offsets, (std::vector<double>{1, 3, 5})) << declared;
    }
    object.text(DCM_NumberOfFrames, "3");
    CapturingProcess last(object.reload(EXS_RLELossless), 3);
    EXPECT_EQ(last.process(), 0) << last.failureCause();
    EXPECT_EQ(last.frames().at(0).bytes, (Bytes{0, 0, 0, 1}));
    DcmRLEEncoderRegistration::cleanup();
    DcmRLEDecoderRegistration::cleanup();
}
