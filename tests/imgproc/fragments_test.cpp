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

bool runLengthsPass(const std::vector<std::uint32_t>& numbers, std::size_t length) {
    Bytes bytes(length, 0);
    for (size_t i = 0; i < numbers.size(); ++i)
        for (size_t k = 0; k < 4; ++k)
            bytes[4 * i + k] = static_cast<std::uint8_t>(numbers[i] >> 8 * k);
    DcmPixelItem item(DCM_PixelItemTag);
    return checkRunLengthHeader(fill(item, bytes)).good();
}

/// Why a JPEG frame of `frameBytes` is refused that begins with these bytes and goes on with zeros, or "".
std::string refusal(Bytes bytes, std::uint64_t frameBytes = 64) {
    bytes.resize(40, 0);
    const OFCondition condition = checkJpegMarkers(bytes, JpegFamily::Jpeg, frameBytes);
    return condition.good() ? "" : condition.text();
}

/// Why a JPEG-LS frame of 64 bytes is refused that consists of these bytes, or "".
std::string jpegLsRefusal(const Bytes& bytes) {
    const OFCondition condition = checkJpegMarkers(bytes, JpegFamily::JpegLs, 64);
    return condition.good() ? "" : condition.text();
}

/// A frame header with its marker.
Bytes frameHeader(std::uint8_t marker, std::uint8_t bits, unsigned height, unsigned width,
                  std::uint8_t components) {
    const auto low = [](unsigned value) { return static_cast<std::uint8_t>(value); };
    const std::uint8_t fixed[] = {0xFF,       marker,           0,           low(8 + 3 * components),
                                  bits,       low(height >> 8), low(height), low(width >> 8),
                                  low(width), components};
    Bytes bytes(sizeof fixed + 3 * components, 0x11);
    std::copy(std::begin(fixed), std::end(fixed), bytes.begin());
    return bytes;
}

Bytes operator+(Bytes first, const Bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

}  // namespace

TEST(Fragments, RunLengthSegmentsMustBeThere) {
    EXPECT_TRUE(runLengthsPass({1, 64}, 100));
    EXPECT_TRUE(runLengthsPass({3, 64, 80, 300}, 302));
    EXPECT_FALSE(runLengthsPass({3, 64, 80, 300}, 300)) << "behind the fragment";
    EXPECT_FALSE(runLengthsPass({2, 80, 64}, 100));
    EXPECT_FALSE(runLengthsPass({2, 64, 64}, 100));
    EXPECT_FALSE(runLengthsPass({1, 8}, 100)) << "within the header";
    EXPECT_FALSE(runLengthsPass({2, 64, 0xFFFFFFF0}, 100));
    EXPECT_FALSE(runLengthsPass({0}, 100));
    EXPECT_FALSE(runLengthsPass({16, 64}, 100));
    for (const size_t size : {0, 8, 62}) {
        DcmPixelItem item(DCM_PixelItemTag);
        EXPECT_EQ(std::string(checkRunLengthHeader(fill(item, Bytes(size, 0))).text()),
                  "the fragment of " + std::to_string(size) + " bytes is too short for a run length header");
    }
}

TEST(Fragments, AJpegStreamLeadsToAFrameHeaderThatFits) {
    const Bytes start{0xFF, 0xD8}, header = frameHeader(0xC0, 8, 8, 8, 1);
    EXPECT_EQ(refusal(start + header), "");
    EXPECT_EQ(refusal(start + Bytes{0xFF, 0xE0, 0, 4, 0xFF, 0x01} + header), "") << "inside a segment";
    EXPECT_EQ(refusal(start + Bytes{0xFF, 0xFF, 0xFF, 0xC4, 0, 2, 0xFF, 0xD0} + header), "");
    const char* tem = "the JPEG stream has a marker (TEM) before its frame header";
    EXPECT_EQ(refusal(start + Bytes{0xFF, 0x01}), tem);
    EXPECT_EQ(refusal(start + Bytes{0xFF, 0xE0, 0, 4, 1, 2, 0xFF, 0x01} + header), tem);
    EXPECT_EQ(refusal(start + Bytes{0xFF, 0xFF, 0xFF, 0x01} + header), tem);
    EXPECT_EQ(refusal(start + Bytes{0xFF, 0x30, 0xFF, 0xD0, 0xFF, 0x01} + header), tem);
    EXPECT_EQ(refusal(start + Bytes{0xFF, 0xE0, 0, 1} + header),
              "the JPEG stream has a segment of 1 bytes, 36 are left in the fragment");
    EXPECT_EQ(refusal(start + Bytes{0xFF, 0xE0, 0, 37}),
              "the JPEG stream has a segment of 37 bytes, 36 are left in the fragment");
    const char* none = "the JPEG stream has no frame header";
    EXPECT_EQ(refusal(start), none);
    EXPECT_EQ(refusal(start + Bytes{0xFF, 0xE0, 0, 36}), none) << "up to the end";
    EXPECT_EQ(refusal(start + Bytes{0, 0} + header), none);
    EXPECT_EQ(refusal(header), "the frame does not begin with the start of a JPEG stream");
    EXPECT_FALSE(checkJpegMarkers({}, JpegFamily::Jpeg, 64).good());
    EXPECT_EQ(refusal(start + frameHeader(0xC0, 8, 8, 9, 1)),
              "the JPEG stream announces 9 x 8 pixels, 1 components of 8 bits: more than the 64 bytes of the "
              "object's frame");
    Bytes scans(start + header);
    for (int i = 0; i < 100; ++i)
        scans = scans + Bytes{0xFF, 0xDA};
    EXPECT_TRUE(checkJpegMarkers(scans, JpegFamily::Jpeg, 64).good());
    EXPECT_STREQ(checkJpegMarkers(scans + Bytes{0xFF, 0xDA}, JpegFamily::Jpeg, 64).text(),
                 "the JPEG stream has more than 100 scans");
    EXPECT_NE(refusal(start + frameHeader(0xC1, 12, 8, 8, 1)), "") << "two bytes a sample";
    // In 32 bits 8192 bytes.
    EXPECT_NE(refusal(start + frameHeader(0xC3, 16, 65536 / 4 + 1, 65535, 4), 131064), "");
}

TEST(Fragments, AJpegLsStreamIsClosed) {
    const Bytes start{0xFF, 0xD8}, header = frameHeader(0xF7, 8, 8, 8, 1), end{0xFF, 0xD9};
    const char* none = "the JPEG-LS stream has no end";
    EXPECT_EQ(jpegLsRefusal(start + header), none);
    EXPECT_EQ(jpegLsRefusal(start + header + end), "");
    for (const Bytes& padding : {Bytes{0xFF}, Bytes{0}, Bytes{0x5A}, Bytes{0, 0, 0}})
        EXPECT_EQ(jpegLsRefusal(start + header + end + padding), "");
    EXPECT_EQ(jpegLsRefusal(start + header + end + Bytes{0x5A, 0x5A}), none);
    EXPECT_NE(jpegLsRefusal(start + frameHeader(0xF7, 8, 8, 8, 3) + end), "") << "too large";
    EXPECT_EQ(jpegLsRefusal(start + frameHeader(0xC0, 8, 8, 8, 1) + end),
              "the JPEG stream has no frame header");
}

TEST(Fragments, CompressedFramesThatExistAreConverted) {
    DcmRLEDecoderRegistration::registerCodecs();
    DcmRLEEncoderRegistration::registerCodecs();
    TestObject object;
    object.describe({.rows = 2, .columns = 2, .frames = 3});
    object.pixels(Bytes{1, 1, 1, 2, 3, 3, 3, 4, 5, 5, 5, 6});
    ASSERT_TRUE(object.dataset().chooseRepresentation(EXS_RLELossless, nullptr).good());
    const std::pair<int, std::string> cases[] = {
        {3, ""},
        {9, "3 of 9 frames were converted: frame 4 of 9 cannot be decoded: "},
        {2, "the pixel data hold 1 fragments more than the 2 frames that the object declares"},
        {1, "the pixel data hold 2 fragments more than the 1 frames that the object declares"}};
    for (const auto& [declared, warning] : cases) {
        object.text(DCM_NumberOfFrames, std::to_string(declared));
        std::vector<double> offsets, expected{1, 3, 5};
        if (declared < 3) expected.resize(declared);
        DcmFileFormat file;
        ASSERT_TRUE(file.loadFile(object.save(EXS_RLELossless).c_str()).good());
        CapturingProcess process(*file.getDataset());
        EXPECT_EQ(process.process(), 0) << process.failureCause();
        for (const CapturedFrame& frame : process.frames())
            offsets.push_back(frame.intercept);
        EXPECT_EQ(offsets, expected) << declared;
        const std::string said = process.warnings().empty() ? "" : process.warnings().front();
        EXPECT_EQ(said.substr(0, warning.size()), warning);
        EXPECT_EQ(said.empty(), warning.empty()) << said;
    }
    object.text(DCM_NumberOfFrames, "3");
    CapturingProcess last(object.reload(EXS_RLELossless), 3);
    EXPECT_EQ(last.process(), 0) << last.failureCause();
    EXPECT_EQ(last.frames().at(0).bytes, (Bytes{0, 0, 0, 1}));

    // One frame in two fragments, cut behind the run length header: the decoder gets them as one.
    TestObject cut;
    cut.describe({.rows = 2, .columns = 2});
    cut.pixels(Bytes{1, 1, 1, 2});
    ASSERT_TRUE(cut.dataset().chooseRepresentation(EXS_RLELossless, nullptr).good());
    DcmElement* element = nullptr;
    DcmPixelSequence* sequence = nullptr;
    DcmPixelItem* item = nullptr;
    Uint8* value = nullptr;
    ASSERT_TRUE(cut.dataset().findAndGetElement(DCM_PixelData, element).good());
    ASSERT_TRUE(static_cast<DcmPixelData*>(element)
                    ->getEncapsulatedRepresentation(EXS_RLELossless, nullptr, sequence)
                    .good());
    ASSERT_TRUE(sequence->getItem(item, 1).good() && item->getUint8Array(value).good());
    const Bytes whole(value, value + item->getLength());
    fill(*item, Bytes(whole.begin(), whole.begin() + 64));
    auto second = std::make_unique<DcmPixelItem>(DCM_PixelItemTag);
    fill(*second, Bytes(whole.begin() + 64, whole.end()));
    ASSERT_TRUE(sequence->insert(second.release()).good());
    CapturingProcess joined(cut.reload(EXS_RLELossless));
    EXPECT_EQ(joined.process(), 0) << joined.failureCause();
    EXPECT_EQ(joined.frames().at(0).bytes, (Bytes{0, 0, 0, 1}));
    DcmRLEEncoderRegistration::cleanup();
    DcmRLEDecoderRegistration::cleanup();
}
