// What becomes of a complete frame: origin, width, windows, planes.
#include "imgproc/rawimage.h"

#include <optional>

#include "tests/imgproc/capturingprocess.h"

namespace {

/// 64 x 64 pixels whose values 100 ... 1123 all occur four times.
void rampObject(TestObject& object, const char* photometric = "MONOCHROME2") {
    object.describe({64, 64, 16, 12, 11, 0, 1, photometric});
    Words samples(64 * 64);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<uint16_t>(100 + i % 1024);
    object.pixels(samples);
}

struct Window {
    double center;
    double width;
    bool operator==(const Window&) const = default;
};

Window windowOf(TestObject& object) {
    const Converted converted(object);
    const CapturedFrame& frame = converted.frame();
    return {frame.windowCenter, frame.windowWidth};
}

}  // namespace

TEST(RawImage, SamplesMoveToTheOriginAndTheInterceptFollows) {
    TestObject object;
    rampObject(object);
    object.text(DCM_RescaleSlope, "2.5");
    object.text(DCM_RescaleIntercept, "-1000");
    const Converted converted(object);
    const CapturedFrame& frame = converted.frame();
    EXPECT_EQ(frame.bitsUsed, 10);
    EXPECT_EQ(frame.intercept, -1000 + 100 * 2.5);
    EXPECT_EQ(frame.slope, 2.5);
    for (size_t i = 0; i < 64 * 64; ++i)
        ASSERT_EQ(frame.words()[i], i % 1024);
}

TEST(RawImage, SmallRangesArePackedIntoBytes) {
    const ImageShape shape{.columns = 4, .allocated = 16, .stored = 16, .representation = 1};
    TestObject object(shape, Words{0xFF38, 0xFF39, 0x0037, 0xFFFF});  // -200, -199, 55, -1
    const Converted converted(object);
    EXPECT_EQ(converted.frame().bitsUsed, 8);
    EXPECT_EQ(converted.frame().bytesPerSample, 1);
    EXPECT_EQ(converted.frame().intercept, -200);
    EXPECT_EQ(converted.bytes(), (Bytes{0, 1, 255, 199}));
    TestObject wider(shape, Words{0xFF38, 0x0038, 0xFF38, 0xFF39});  // -200 ... 56: 257 values
    EXPECT_EQ(Converted(wider).words(), (Words{0, 256, 0, 1}));
}

TEST(RawImage, AValidWindowStaysAndAnyOtherIsReplaced) {
    TestObject plain;
    rampObject(plain);
    const Window found = windowOf(plain);
    EXPECT_GT(found.width, 0);

    struct Case {
        const char* center;
        const char* width;
        std::optional<Window> expected;
    };
    const Case cases[] = {
        {"40", "350", Window{40, 350}},
        {"-65535", "65535", Window{-65535, 65535}},
        {"40\\50", "350.5\\7", Window{40, 350.5}},
        {"40", "0", std::nullopt},
        {"40", "-1", std::nullopt},
        {"40", "70000", std::nullopt},
        {"65536", "350", std::nullopt},
        {"40", "", std::nullopt},
        {"nan", "350", std::nullopt},
    };
    for (const Case& c : cases) {
        TestObject object;
        rampObject(object);
        object.text(DCM_WindowCenter, c.center);
        object.text(DCM_WindowWidth, c.width);
        EXPECT_EQ(windowOf(object), c.expected.value_or(found)) << c.center << " " << c.width;
    }
}

TEST(RawImage, TheModalityChoosesTheWindowOfTheHistogram) {
    for (const char* modality : {"CT", "CR", "DR", "DX", "XA", "MG"}) {
        Bytes samples(64);
        for (size_t i = 0; i < 64; ++i)
            samples[i] = static_cast<uint8_t>(i * i / 20);
        TestObject object({.rows = 8, .columns = 8}, samples);
        object.text(DCM_Modality, modality);
        object.text(DCM_RescaleSlope, "1.5");
        object.text(DCM_RescaleIntercept, "3");

        CHistogram histogram;
        ASSERT_TRUE(histogram.init(1, false, 1.1, 1.2, 64));
        histogram.countBytes(samples.data(), samples.size());
        histogram.analyze(0);
        const bool mammography = modality == std::string("MG");
        const size_t level = mammography ? 3 : modality == std::string("CT") ? 1 : 5;
        const int width = (mammography ? histogram.widthsA() : histogram.widthsB())[level];
        const int center = (mammography ? histogram.centersA() : histogram.centersB())[level];
        EXPECT_EQ(windowOf(object), (Window{center * 1.5 + 3, width * 1.5})) << modality;
    }
}

TEST(RawImage, OnlyTheKnownCaptureDeviceIsNotTurnedOver) {
    for (const char* version : {"1.0", "1.1"}) {
        TestObject object;
        rampObject(object, "MONOCHROME1");
        object.text(DCM_SecondaryCaptureDeviceManufacturerModelName, "Tarnoview");
        object.text(DCM_SecondaryCaptureDeviceSoftwareVersions, version);
        const bool inverted = version == std::string("1.1");
        const Converted converted(object);
        const CapturedFrame& frame = converted.frame();
        EXPECT_EQ(frame.words()[0], inverted ? 1023 : 0);
        EXPECT_EQ(frame.slope, inverted ? -1 : 1);
        EXPECT_EQ(frame.intercept, inverted ? 1123 : 100);
    }
}

TEST(RawImage, InterleavesPlanesOfEverySize) {
    DcmDataset dataset;
    CapturingProcess process(dataset);
    CRawImage image(&process, process.frameContext(), 1);
    for (size_t pixels : {1, 3, 333, 2000, 2001, 4003, 65537, 262144}) {
        // Each plane counts up from another start, so that a byte says where it came from.
        std::vector<char> planes(3 * pixels + 2);
        for (size_t i = 0; i < planes.size(); ++i)
            planes[i] = static_cast<char>(i * 7 + i / 251);
        std::vector<char> expected = planes;
        for (size_t i = 0; i < pixels; ++i)
            for (size_t c = 0; c < 3; ++c)
                expected[3 * i + c] = planes[c * pixels + i];
        image.planarToInterleaved3(planes.data(), static_cast<int>(planes.size()));
        EXPECT_TRUE(planes == expected) << pixels;
    }
}
