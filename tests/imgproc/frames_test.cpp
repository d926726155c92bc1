// Which frames of an object are converted, and what happens to the ones that are not there.
#include <gtest/gtest.h>

#include "tests/imgproc/capturingprocess.h"
#include "tests/imgproc/testobject.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

/// Frames of two pixels: 10 * k and 10 * k + 1 for frame k = 1, 2, ...
void numberedFrames(TestObject& object, int declared, int present) {
    object.describe({.columns = 2, .frames = declared});
    Bytes samples;
    for (int frame = 1; frame <= present; ++frame) {
        samples.push_back(static_cast<std::uint8_t>(10 * frame));
        samples.push_back(static_cast<std::uint8_t>(10 * frame + 1));
    }
    object.pixels(samples);
}

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

TEST(Frames, AllOrOne) {
    TestObject object;
    numberedFrames(object, 3, 3);
    CapturingProcess all(object.reload());
    EXPECT_EQ(all.process(), 0);
    EXPECT_EQ(firstSamples(all), (std::vector<double>{10, 20, 30}));
    EXPECT_FALSE(object.dataset().tagExists(DCM_PixelData)) << "consumed";

    TestObject again;
    numberedFrames(again, 3, 3);
    CapturingProcess second(again.reload(), 2);
    EXPECT_EQ(second.process(), 0);
    EXPECT_EQ(firstSamples(second), std::vector<double>{20});
    EXPECT_EQ(second.imagesStarted(), 1);

    TestObject beyond;
    numberedFrames(beyond, 2, 2);
    CapturingProcess third(beyond.reload(), 3);
    EXPECT_EQ(third.process(), 1);
    EXPECT_EQ(third.failureCause(), "Invalid specific frame number 3. There are only 2 frames in the object");
    EXPECT_TRUE(third.frames().empty());
}

TEST(Frames, ThoseThatExistAreConverted) {
    TestObject cut;
    numberedFrames(cut, 5, 3);
    CapturingProcess process(cut.reload());
    EXPECT_EQ(process.process(), 0);
    EXPECT_EQ(firstSamples(process), (std::vector<double>{10, 20, 30}));

    TestObject nothing;
    nothing.describe({.rows = 10, .columns = 10});
    nothing.pixels(Bytes{1, 2});
    CapturingProcess second(nothing.reload());
    EXPECT_EQ(second.process(), 1);
    EXPECT_NE(second.failureCause().find("frame 1 of 1 cannot be decoded"), std::string::npos);

    // Number of Slices wins over Number of Frames, but frames come from the pixel data.
    TestObject slices;
    numberedFrames(slices, 2, 2);
    slices.words(0x0054, 0x0081, EVR_US, {40});
    CapturingProcess third(slices.reload());
    EXPECT_EQ(third.process(), 0);
    EXPECT_EQ(third.numberOfFrames(), 40);
    EXPECT_EQ(third.frames().size(), 2U);
}

TEST(Frames, AFrameThatCannotBeKeptFailsTheObjectButNotTheOthers) {
    TestObject object;
    numberedFrames(object, 3, 3);
    PickyProcess process(object.reload());
    process.refused = 2;
    EXPECT_EQ(process.process(), 1);
    EXPECT_EQ(process.frames().size(), 3U);
    EXPECT_NE(process.failureCause().find("image 2"), std::string::npos);
}

TEST(Frames, NativeValuesStayInTheFile) {
    TestObject object;
    object.describe({.rows = 100, .columns = 100, .frames = 40});
    object.pixels(Bytes(400000, 3));
    for (E_TransferSyntax syntax : {EXS_LittleEndianExplicit, EXS_BigEndianExplicit}) {
        PickyProcess process(object.reload(syntax));
        EXPECT_EQ(process.process(), 0);
        EXPECT_EQ(process.frames().size(), 40U);
        EXPECT_FALSE(process.valueWasLoaded);
        object.pixels(Bytes(400000, 3));
    }
}

TEST(Frames, WithoutASizeThereIsNoImage) {
    TestObject object;
    object.describe({.rows = 0, .columns = 2});
    object.pixels(Bytes{1, 2});
    CapturingProcess process(object.reload());
    EXPECT_EQ(process.process(), 1);
    EXPECT_EQ(process.imagesStarted(), 0);
    EXPECT_EQ(process.failureCause(),
              "PixelData present but one or more of Rows/Columns/SamplesPerPixel is invalid/zero");
}

TEST(Frames, PrivateElementsStayOnlyWhenIncluded) {
    class Excluding : public CapturingProcess {
    public:
        using CapturingProcess::CapturingProcess;
        bool isIncluded(const DcmTag& tag) override { return tag.getElement() == 0x1002; }
    };
    TestObject object;
    const auto put = [&](Uint16 group, Uint16 element, const char* text) {
        object.dataset().putAndInsertString(DcmTag(group, element, DcmVR(EVR_LO)), text);
    };
    put(0x0009, 0x0010, "SOMEBODY");
    put(0x0009, 0x1001, "goes");
    put(0x0009, 0x1002, "stays");
    put(0xF215, 0x0010, "PB group A");
    put(0xF215, 0x103A, "ours");
    Excluding process(object.dataset());
    EXPECT_EQ(process.process(), 0);
    EXPECT_FALSE(object.dataset().tagExists(DcmTagKey(0x0009, 0x1001)));
    EXPECT_TRUE(object.dataset().tagExists(DcmTagKey(0x0009, 0x1002)));
    EXPECT_TRUE(object.dataset().tagExists(DcmTagKey(0xF215, 0x103A)));
}

TEST(Frames, DecimalAttributesThatAreEmptyReadAsZero) {
    TestObject object;
    numberedFrames(object, 1, 1);
    object.text(DCM_RescaleSlope, "");
    object.text(DCM_PixelSpacing, "0.5");
    object.text(DCM_PhotometricInterpretation, "HSV");
    CapturingProcess process(object.reload());
    EXPECT_EQ(process.process(), 0);
    EXPECT_EQ(process.rescaleSlope(), 0);
    EXPECT_EQ(process.pixelSpacing(), (std::array<double, 2>{0.5, 0.0}));
    EXPECT_EQ(process.photometricKind(), PhotometricKind::Monochrome) << "a model that is not converted";
    ASSERT_EQ(process.frames().size(), 1u);
    EXPECT_EQ(process.frames()[0].bytes, (Bytes{0, 1}));
}
