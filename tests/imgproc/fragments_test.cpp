// Compressed frames: what is looked at before the toolkit's decoders see them, and which frames are found.
#include "imgproc/fragmentcheck.h"
#include "tests/imgproc/capturingprocess.h"
#include "tests/shared/codestreams.h"

namespace {

Bytes operator+(Bytes first, const Bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/// What an object says of a frame.
FrameShape shape(Uint16 rows, Uint16 columns, Uint16 samples = 1, Uint16 allocated = 8) {
    DcmItem none;
    FrameShape result(none);
    result.rows = rows;
    result.columns = columns;
    result.samples = samples;
    result.allocated = allocated;
    return result;
}

/// Why a frame of run lengths is refused, or "": its header's numbers, then bytes from 64 on.
std::string runLengthRefusal(const std::vector<uint32_t>& numbers, const Bytes& segments,
                             const FrameShape& object = shape(2, 8)) {
    Bytes bytes(64, 0);
    for (size_t i = 0; i < numbers.size(); ++i)
        for (size_t k = 0; k < 4; ++k)
            bytes[4 * i + k] = static_cast<uint8_t>(numbers[i] >> 8 * k);
    bytes.insert(bytes.end(), segments.begin(), segments.end());
    const OFCondition condition = checkRunLengths(bytes, object);
    return condition.good() ? "" : condition.text();
}

/// Why a JPEG or JPEG-LS frame is refused, or "".
std::string jpegRefusal(const Bytes& bytes, JpegFamily family, const FrameShape& object = shape(8, 8)) {
    unsigned precision = 0;
    const OFCondition condition = checkJpegMarkers(bytes, family, object, precision);
    return condition.good() ? "" : condition.text();
}

/// The same of a JPEG frame that begins with these bytes and goes on with zeros.
std::string refusal(Bytes bytes, const FrameShape& object = shape(8, 8)) {
    bytes.resize(40, 0);
    return jpegRefusal(bytes, JpegFamily::Jpeg, object);
}

std::string jpegLsRefusal(const Bytes& bytes) {
    return jpegRefusal(bytes, JpegFamily::JpegLs);
}

/// A frame header with its marker.
Bytes frameHeader(uint8_t marker, uint8_t bits, unsigned height, unsigned width, uint8_t components) {
    const auto low = [](unsigned value) { return static_cast<uint8_t>(value); };
    const uint8_t fixed[] = {0xFF,       marker,           0,           low(8 + 3 * components),
                             bits,       low(height >> 8), low(height), low(width >> 8),
                             low(width), components};
    Bytes bytes(sizeof fixed + 3 * components, 0x11);
    std::copy(std::begin(fixed), std::end(fixed), bytes.begin());
    return bytes;
}

}  // namespace

TEST(Fragments, RunLengthSegmentsMustBeThere) {
    const char* none = "the run length header names segments that are not there";
    EXPECT_EQ(runLengthRefusal({3, 64, 80, 300}, Bytes(236)), none) << "behind the fragment";
    EXPECT_EQ(runLengthRefusal({2, 80, 64}, Bytes(36)), none);
    EXPECT_EQ(runLengthRefusal({2, 64, 64}, Bytes(36)), none);
    EXPECT_EQ(runLengthRefusal({1, 8}, Bytes(36)), none) << "within the header";
    EXPECT_EQ(runLengthRefusal({2, 64, 0xFFFFFFF0}, Bytes(36)), none);
    EXPECT_EQ(runLengthRefusal({0}, Bytes(36)), "the run length header has 0 segments");
    EXPECT_EQ(runLengthRefusal({16, 64}, Bytes(36)), "the run length header has 16 segments");
    for (const size_t size : {0, 8, 62})
        EXPECT_STREQ(
            checkRunLengths(Bytes(size, 0), shape(2, 8)).text(),
            ("the fragment of " + std::to_string(size) + " bytes is too short for a run length header")
                .c_str());
}

TEST(Fragments, RunLengthsHoldEveryPixel) {
    // Sixteen pixels: a run of nine, then seven literally.
    const Bytes whole{0xF8, 1, 6, 1, 2, 3, 4, 5, 6, 7};
    EXPECT_EQ(runLengthRefusal({1, 64}, whole), "");
    EXPECT_EQ(runLengthRefusal({1, 64}, whole + Bytes{0, 0}), "") << "one byte more is padding";
    EXPECT_EQ(runLengthRefusal({1, 64}, whole + Bytes{1, 1, 1}),
              "run length segment 1 unpacks to 18 bytes, the object says 8 x 2 pixels");
    EXPECT_EQ(runLengthRefusal({1, 64}, Bytes(whole.begin(), whole.end() - 1)),
              "run length segment 1 unpacks to 15 bytes, the object says 8 x 2 pixels");
    EXPECT_EQ(runLengthRefusal({1, 64}, {0xF2, 9, 0xF2}),
              "run length segment 1 unpacks to 15 bytes, the object says 8 x 2 pixels");
    EXPECT_EQ(runLengthRefusal({2, 64, 74}, whole + Bytes{0xF1, 3}, shape(2, 8, 1, 16)), "");
    EXPECT_EQ(runLengthRefusal({2, 64, 74}, whole + Bytes{0xF2, 3}, shape(2, 8, 1, 16)),
              "run length segment 2 unpacks to 15 bytes, the object says 8 x 2 pixels");
    EXPECT_EQ(runLengthRefusal({2, 64, 74}, whole + whole, shape(2, 8, 3)),
              "the run length header has 2 segments, the object's frame needs 3");
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
    EXPECT_NE(jpegRefusal({}, JpegFamily::Jpeg), "");
    const char* size = "the JPEG stream holds 9 x 8 pixels, the object says ";
    EXPECT_EQ(refusal(start + frameHeader(0xC0, 8, 8, 9, 1)), std::string(size) + "8 x 8 pixels");
    EXPECT_EQ(refusal(start + frameHeader(0xC0, 8, 8, 9, 1), shape(9, 8)), std::string(size) + "8 x 9 pixels")
        << "the same number of them";
    EXPECT_EQ(refusal(start + frameHeader(0xC0, 8, 8, 8, 3)),
              "the JPEG stream has 3 components, the object says 1");
    EXPECT_EQ(refusal(start + header, shape(8, 8, 3)), "the JPEG stream has 1 components, the object says 3");
    EXPECT_EQ(refusal(start + frameHeader(0xC1, 12, 8, 8, 1)),
              "the JPEG stream has 12 bits a sample, the object allocates 8");
    EXPECT_EQ(refusal(start + header, shape(8, 8, 1, 16)), "");
    Bytes scans(start + header);
    for (int i = 0; i < 100; ++i)
        scans = scans + Bytes{0xFF, 0xDA};
    EXPECT_EQ(jpegRefusal(scans, JpegFamily::Jpeg), "");
    EXPECT_EQ(jpegRefusal(scans + Bytes{0xFF, 0xDA}, JpegFamily::Jpeg),
              "the JPEG stream has more than 100 scans");
}

TEST(Fragments, AJpegLsStreamIsClosed) {
    const Bytes start{0xFF, 0xD8}, header = frameHeader(0xF7, 8, 8, 8, 1), end{0xFF, 0xD9};
    const char* none = "the JPEG-LS stream has no end";
    EXPECT_EQ(jpegLsRefusal(start + header), none);
    EXPECT_EQ(jpegLsRefusal(start + header + end), "");
    for (const Bytes& padding : {Bytes{0xFF}, Bytes{0}, Bytes{0x5A}, Bytes{0, 0, 0}})
        EXPECT_EQ(jpegLsRefusal(start + header + end + padding), "");
    EXPECT_EQ(jpegLsRefusal(start + header + end + Bytes{0x5A, 0x5A}), none);
    EXPECT_NE(jpegLsRefusal(start + frameHeader(0xF7, 8, 8, 8, 3) + end), "");
    EXPECT_EQ(jpegLsRefusal(start + frameHeader(0xC0, 8, 8, 8, 1) + end),
              "the JPEG stream has no frame header");
}

TEST(Fragments, CompressedFramesThatExistAreConverted) {
    const Encoders encoders;
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
    compress(cut.dataset(), EXS_RLELossless);
    const Bytes whole = fragmentsOf(cut.dataset()).at(1);
    putFragments(cut.dataset(), {{}, {whole.begin(), whole.begin() + 64}, {whole.begin() + 64, whole.end()}},
                 EXS_RLELossless);
    CapturingProcess joined(cut.reload(EXS_RLELossless));
    EXPECT_EQ(joined.process(), 0) << joined.failureCause();
    EXPECT_EQ(joined.frames().at(0).bytes, (Bytes{0, 0, 0, 1}));
}
