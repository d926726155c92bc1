// Compressed frames that are not what their object says: refused with what both say, or every sample is
// accounted for. And nothing of one frame shows in another.
#include "imgproc/framereader.h"
#include "tests/imgproc/capturingprocess.h"
#include "tests/shared/codestreams.h"

namespace {

/// Two frames of a ramp over nearly all values of the stored bits; they differ in one sample.
constexpr ImageShape kGrey8{.rows = 8, .columns = 16, .frames = 2};
constexpr ImageShape kGrey12{.rows = 8, .columns = 16, .allocated = 16, .stored = 12, .frames = 2};
constexpr ImageShape kColor8{.rows = 8, .columns = 16, .samples = 3, .photometric = "RGB", .frames = 2};

int valueOf(int sample, int frame, const ImageShape& shape) {
    const int last = shape.rows * shape.columns * shape.samples - 1;
    return (sample * 255 / last ^ (sample == last / 2 ? frame : 0)) << (shape.stored - 8);
}

struct Codec {
    const char* name;
    E_TransferSyntax syntax;
    bool narrow;        ///< codes at most 8 bits
    bool tellsSize;     ///< its frames have a header with rows and columns
    int tolerance = 0;  ///< how far a decoded sample may lie from its value
};

const Codec codecs[] = {
    {"JpegBaseline", EXS_JPEGProcess1, true, true, 40},
    {"JpegExtended", EXS_JPEGProcess2_4, false, true, 40},
    {"JpegLossless", EXS_JPEGProcess14SV1, false, true},
    {"JpegLs", EXS_JPEGLSLossless, false, true},
    {"RunLengths", EXS_RLELossless, false, false},
    {"Jpeg2000", EXS_JPEG2000LosslessOnly, false, true},
};

class FrameHeaders : public testing::TestWithParam<Codec> {
protected:
    static E_TransferSyntax syntax() { return GetParam().syntax; }

    /// An image of the shape, compressed.
    static void compress(TestObject& object, const ImageShape& shape) {
        object.describe(shape);
        if (shape.samples == 3) object.dataset().putAndInsertUint16(DCM_PlanarConfiguration, 0);
        Bytes bytes;
        for (int frame = 0; frame < shape.frames; ++frame) {
            for (int i = 0; i < shape.rows * shape.columns * shape.samples; ++i) {
                bytes.push_back(static_cast<uint8_t>(valueOf(i, frame, shape)));
                if (shape.allocated == 16)
                    bytes.push_back(static_cast<uint8_t>(valueOf(i, frame, shape) >> 8));
            }
        }
        object.pixels(bytes);
        const std::unique_ptr<DcmRepresentationParameter> how(
            CodecRegistry::getRepresentationParameter(object.dataset(), syntax()));
        ::compress(object.dataset(), syntax(), how.get());
    }

    /// Why the first frame of an image of one shape is refused under the attributes of another, or "".
    static std::string refusal(const ImageShape& coded, const ImageShape& described) {
        TestObject object;
        compress(object, coded);
        object.describe(described);
        CapturingProcess process(object.reload(syntax()));
        EXPECT_EQ(process.process() != 0, process.frames().empty());
        return process.failureCause();
    }

    /// The samples of the first frame as they were described, or their first wrong one.
    static void expectSamples(const CapturedFrame& frame, int number, const ImageShape& coded) {
        const int samples = coded.rows * coded.columns * coded.samples;
        ASSERT_EQ(frame.bytes.size(), static_cast<size_t>(samples * frame.bytesPerSample / coded.samples));
        for (int i = 0; i < samples; ++i) {
            const int value = frame.bytesPerSample == 2 ? frame.words()[static_cast<size_t>(i)]
                                                        : frame.bytes[static_cast<size_t>(i)];
            ASSERT_NEAR(value + frame.intercept, valueOf(i, number, coded), GetParam().tolerance) << i;
        }
    }

    Encoders m_encoders;
};

bool names(const std::string& text, const std::string& one, const std::string& other) {
    return text.find(one) != std::string::npos && text.find(other) != std::string::npos;
}

}  // namespace

TEST_P(FrameHeaders, ThatContradictTheObjectAreRefusedWithBothNumbers) {
    const auto sized = [](ImageShape shape, Uint16 columns, Uint16 rows) {
        shape.columns = columns;
        shape.rows = rows;
        return shape;
    };
    for (const auto& [columns, rows] :
         {std::pair<Uint16, Uint16>{16, 9}, {16, 7}, {17, 8}, {15, 8}, {8, 4}}) {
        const std::string cause = refusal(kGrey8, sized(kGrey8, columns, rows));
        const std::string said = std::to_string(columns) + " x " + std::to_string(rows);
        EXPECT_TRUE(names(cause, GetParam().tellsSize ? "16 x 8" : "128 bytes", said)) << cause;
    }
    if (GetParam().tellsSize) {
        const std::string cause = refusal(kGrey8, sized(kGrey8, 8, 16));
        EXPECT_TRUE(names(cause, "16 x 8", "8 x 16")) << "as many pixels: " << cause;
    }
    const char* parts = GetParam().tellsSize ? "components" : "segments";
    for (const bool moreDescribed : {true, false}) {
        const std::string cause = moreDescribed ? refusal(kGrey8, kColor8) : refusal(kColor8, kGrey8);
        EXPECT_TRUE(names(cause, moreDescribed ? "1 " : "3 ", parts)) << cause;
        EXPECT_NE(cause.find(moreDescribed ? " 3" : " 1", cause.find(parts)), std::string::npos) << cause;
    }
    ImageShape wrong = kGrey8;
    wrong.photometric = "RGB";
    EXPECT_TRUE(names(refusal(kGrey8, wrong), "Samples per Pixel of 1", "RGB"));
    wrong = kGrey12;
    wrong.allocated = 12;
    EXPECT_TRUE(names(refusal(kGrey8, wrong), "12", "only 8 and 16"));
    if (!GetParam().narrow) {
        const std::string cause = refusal(kGrey12, kGrey8);
        EXPECT_TRUE(names(cause, GetParam().tellsSize ? " bits a sample" : " 2 segments",
                          GetParam().tellsSize ? "allocates 8" : "needs 1"))
            << cause;
    }
}

TEST_P(FrameHeaders, OfFewerBitsThanAllocatedKeepEverySample) {
    ImageShape wide = kGrey8;
    wide.allocated = 16;
    if (!GetParam().tellsSize) {
        EXPECT_EQ(refusal(kGrey8, wide),
                  "frame 1 of 2 cannot be decoded: the run length header has 1 segments, the object's frame "
                  "needs 2");
        return;
    }
    for (const ImageShape& coded : {kGrey8, kColor8}) {
        wide.samples = coded.samples;
        wide.photometric = coded.photometric;
        for (const Uint16 stored : {8, 12}) {
            wide.stored = stored;
            if (coded.samples == 3 && stored != 8) continue;  // colour keeps its top bits
            TestObject object;
            compress(object, coded);
            object.describe(wide);
            const Converted process(object, syntax());
            ASSERT_EQ(process.frames().size(), 2U);
            for (const int frame : {0, 1})
                expectSamples(process.frames()[static_cast<size_t>(frame)], frame, coded);
        }
    }
    // Two's complement in the bits that are stored.
    ImageShape isSigned = wide = kGrey8;
    wide.allocated = 16;
    isSigned.representation = wide.representation = 1;
    TestObject object, same;
    compress(object, kGrey8);
    compress(same, kGrey8);
    object.describe(wide);
    same.describe(isSigned);
    EXPECT_EQ(Converted(object, syntax()).bytes(), Converted(same, syntax()).bytes());
}

TEST_P(FrameHeaders, OfALaterFrameEndTheObjectThere) {
    for (const auto& [shape, other] : {std::pair{kGrey8, kColor8}, {kColor8, kGrey8}, {kGrey8, kGrey12}}) {
        if (other.allocated == 16 && GetParam().narrow) continue;
        TestObject object, stranger;
        compress(object, shape);
        compress(stranger, other);
        std::vector<Bytes> fragments = fragmentsOf(object.dataset());
        fragments[2] = fragmentsOf(stranger.dataset())[2];
        putFragments(object.dataset(), fragments, syntax());
        const Converted process(object, syntax());
        ASSERT_EQ(process.frames().size(), 1U);
        expectSamples(process.frame(), 0, shape);
    }
}

// A decoder that takes a damaged frame for a good one may fill less than the frame: the rest must not depend
// on what the buffer held.
TEST_P(FrameHeaders, OfDamagedFramesDoNotLetEarlierFramesThrough) {
    for (const ImageShape& shape : {kGrey8, kColor8}) {
        TestObject object;
        compress(object, shape);
        const std::vector<Bytes> whole = fragmentsOf(object.dataset());
        for (size_t i = 0; i < 2 * whole[1].size(); ++i) {
            std::vector<Bytes> damaged = whole;
            uint8_t& byte = damaged[1][i / 2];
            byte = static_cast<uint8_t>(byte + (i % 2 == 0 ? -1 : 0x41));
            putFragments(object.dataset(), damaged, syntax());
            std::vector<Bytes> results;
            for (const uint8_t earlier : {0x00, 0xC3}) {
                FrameReader reader(object.dataset(), pixelDataOf(object.dataset()));
                const size_t size = reader.frameSize();
                reader.setBufferSize(static_cast<uint32_t>(size));
                Bytes buffer(size, earlier);
                std::string model;
                if (!reader.read(0, buffer.data(), model).good()) buffer.clear();
                results.push_back(buffer);
            }
            EXPECT_EQ(results[0], results[1]) << "byte " << i / 2 << " of " << whole[1].size();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Each, FrameHeaders, testing::ValuesIn(codecs),
                         [](const auto& info) { return std::string(info.param.name); });
