// Which frames of an object are converted, and what happens to the ones that are not there.
#include "imgproc/framereader.h"
#include "tests/imgproc/capturingprocess.h"

namespace {

/// Frames of two pixels: 10 * k and 10 * k + 1 for frame k = 1, 2, ...
struct NumberedFrames : TestObject {
    NumberedFrames(int declared, int present) {
        describe({.columns = 2, .frames = declared});
        Bytes samples;
        for (int sample = 10; sample <= 10 * present; sample += 10)
            for (const int value : {sample, sample + 1})
                samples.push_back(static_cast<uint8_t>(value));
        pixels(samples);
    }
};

std::vector<double> firstSamples(const CapturingProcess& process) {
    std::vector<double> values;
    for (const CapturedFrame& frame : process.frames())
        values.push_back(frame.intercept + frame.bytes[0]);
    return values;
}

/// Refuses some frames, and looks at the element while frames come.
class PickyProcess : public CapturingProcess {
public:
    using CapturingProcess::CapturingProcess;
    bool postProcess(CExtractedData* data) override {
        DcmElement* pixelData = nullptr;
        if (dataset()->findAndGetElement(DCM_PixelData, pixelData).good() && pixelData->valueLoaded())
            valueWasLoaded = true;
        return CapturingProcess::postProcess(data) && data->kind() != refused;
    }
    int refused = 0;
    bool valueWasLoaded = false;
};

}  // namespace

TEST(Frames, AllThatExistOrOne) {
    const struct {
        int declared, present, specific;
        std::vector<double> converted;
        const char* failure;
        const char* warning = "";
    } cases[] = {
        {3, 3, 0, {10, 20, 30}, ""},
        {5, 3, 0, {10, 20, 30}, "", "3 of 5 frames were converted: frame 4 of 5 cannot be decoded: "},
        {5, 3, 2, {20}, ""},
        {2, 4, 0, {10, 20}, "", "the pixel data hold 2 frames more than the 2 frames that the object de"},
        {2, 2, 3, {}, "Invalid specific frame number 3. There are only 2 frames in the object"},
        {1, 0, 0, {}, "frame 1 of 1 cannot be decoded"},
    };
    for (const auto& [declared, present, specific, converted, failure, warning] : cases) {
        SCOPED_TRACE(testing::Message() << declared << " " << present << " " << specific);
        NumberedFrames object(declared, present);
        CapturingProcess process(object.reload(), specific);
        EXPECT_EQ(process.process(), *failure ? 1 : 0);
        EXPECT_EQ(process.failureCause().substr(0, std::string(failure).size()), failure);
        const std::string said = process.warnings().empty() ? "" : process.warnings().front();
        EXPECT_EQ(said.substr(0, std::string(warning).size()), warning);
        EXPECT_EQ(said.empty(), *warning == 0);
        EXPECT_EQ(process.imagesStarted(), static_cast<int>(converted.size()));
        EXPECT_EQ(firstSamples(process), converted);
        EXPECT_FALSE(object.dataset().tagExists(DCM_PixelData)) << "consumed";
    }
    // Number of Slices wins over Number of Frames, but frames come from the pixel data.
    NumberedFrames slices(2, 2);
    slices.words(0x0054, 0x0081, EVR_US, {40});
    const Converted process(slices);
    EXPECT_EQ(process.attributes().numberOfFrames, 40);
    EXPECT_EQ(process.frames().size(), 2U);
}

TEST(Frames, ThePaddingOfOneBytePicturesIsNoFrame) {
    for (const bool more : {false, true}) {
        TestObject object;
        object.describe({.frames = 3});
        object.pixels(more ? Bytes{1, 2, 3, 4, 5} : Bytes{1, 2, 3});
        CapturingProcess process(object.reload());
        EXPECT_EQ(process.process(), 0);
        EXPECT_EQ(process.imagesStarted(), 3);
        EXPECT_EQ(process.warnings().empty(), !more);
    }
}

TEST(Frames, ANumberOfFramesThatCannotBeReadIsNone) {
    for (const char* number : {"", "  ", "x"}) {
        for (const int specific : {0, 1}) {
            NumberedFrames object(1, 1);
            object.text(DCM_NumberOfFrames, number);
            CapturingProcess process(object.reload(), specific);
            EXPECT_EQ(process.process(), specific);
            EXPECT_EQ(process.attributes().numberOfFrames, 0);
            EXPECT_EQ(process.frames().size(), specific == 0 ? 1U : 0U);
        }
    }
}

TEST(Frames, APictureOfNoStoredBitsIsToldSo) {
    for (const bool missing : {false, true}) {
        TestObject object({.columns = 2, .stored = 0, .highBit = 7}, Bytes{10, 200});
        if (missing) delete object.dataset().remove(DCM_BitsStored);
        const Converted process(object);
        EXPECT_EQ(process.bytes(), (Bytes{0, 0}));
        EXPECT_EQ(
            process.warnings(),
            std::vector<std::string>{"Bits Stored (0028,0101) is missing or 0: no bit of a sample is kept"});
    }
}

TEST(Frames, AFrameThatCannotBeKeptFailsTheObjectButNotTheOthers) {
    NumberedFrames object(3, 3);
    PickyProcess process(object.reload());
    process.refused = 2;
    EXPECT_EQ(process.process(), 1);
    EXPECT_EQ(process.frames().size(), 3U);
    EXPECT_TRUE(contains(process.failureCause(), "image 2"));
}

TEST(Frames, NativeValuesStayInTheFile) {
    TestObject object({.rows = 100, .columns = 100, .frames = 40}, Bytes(400000, 3));
    for (E_TransferSyntax syntax : {EXS_LittleEndianExplicit, EXS_BigEndianExplicit}) {
        PickyProcess process(object.reload(syntax));
        EXPECT_EQ(process.process(), 0);
        EXPECT_EQ(process.frames().size(), 40U);
        EXPECT_FALSE(process.valueWasLoaded);
        object.pixels(Bytes(400000, 3));
    }
}

TEST(Frames, WhatAFrameDoesNotReachIsZero) {
    // Subsampled colour takes two bytes a pixel of a buffer of three.
    TestObject object({.rows = 2, .columns = 2, .samples = 3, .photometric = "YBR_FULL_422", .frames = 2},
                      Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9});
    object.reload();
    FrameReader reader(object.dataset(), pixelDataOf(object.dataset()));
    Bytes buffer(reader.frameSize(), 0xC3);
    reader.setBufferSize(reader.frameSize());
    std::string model;
    ASSERT_TRUE(reader.read(0, buffer.data(), model).good());
    EXPECT_EQ(buffer, (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0, 0}));
    EXPECT_FALSE(reader.read(1, buffer.data(), model).good()) << "of the second frame a byte is there";
}

TEST(Frames, WithoutASizeThereIsNoImage) {
    TestObject object({.rows = 0, .columns = 2}, Bytes{1, 2});
    CapturingProcess process(object.reload());
    EXPECT_EQ(process.process(), 1);
    EXPECT_EQ(process.imagesStarted(), 0);
    EXPECT_EQ(process.failureCause(),
              "PixelData present but one or more of Rows/Columns/SamplesPerPixel is invalid/zero");
}

TEST(Frames, DecimalAttributesThatAreEmptyReadAsZero) {
    NumberedFrames object(1, 1);
    object.text(DCM_RescaleSlope, "");
    object.text(DCM_PixelSpacing, "0.5");
    object.text(DCM_PhotometricInterpretation, "HSV");
    const Converted process(object);
    EXPECT_EQ(process.attributes().rescaleSlope, 0);
    EXPECT_EQ(process.attributes().pixelSpacing, (std::array<double, 2>{0.5, 0.0}));
    EXPECT_EQ(process.attributes().photometricKind, PhotometricKind::Monochrome)
        << "a model that is not converted";
    EXPECT_EQ(
        process.warnings(),
        std::vector<std::string>{"Photometric Interpretation (0028,0004) \"HSV\" is not known: the samples "
                                 "are read as grey"});
    EXPECT_EQ(process.bytes(), (Bytes{0, 1}));
}
