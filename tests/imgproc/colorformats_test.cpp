// Colour images of every model and arrangement end as R, G, B.
#include <dcmtk/dcmjpeg/djrplol.h>

#include "tests/imgproc/capturingprocess.h"
#include "tests/shared/codestreams.h"

namespace {

/// The bytes of the only frame of a native object with one row.
Bytes nativeRow(const char* photometric, Uint16 columns, const Bytes& samples) {
    TestObject object({.columns = columns, .samples = 3, .photometric = photometric, .planar = 0}, samples);
    const Converted converted(object);
    EXPECT_EQ(converted.frames().size(), 1U);
    return converted.bytes();
}

/// 16 x 16 pixels in planes and the same pixels interleaved.
struct Planes {
    Bytes planes = Bytes(768);
    Bytes pixels = Bytes(768);
    Planes() {
        for (int i = 0; i < 256; ++i)
            for (int channel = 0; channel < 3; ++channel) {
                const auto value = static_cast<uint8_t>(channel == 0   ? i
                                                        : channel == 1 ? i * i / 256
                                                                       : 255 - i);
                planes[channel * 256 + i] = value;
                pixels[3 * i + channel] = value;
            }
    }
};

void describePlanes(TestObject& object, const Bytes& samples, uint16_t planar) {
    object.describe({.rows = 16, .columns = 16, .samples = 3, .photometric = "RGB", .planar = planar});
    object.pixels(samples);
}

}  // namespace

// Each object has a sample 0, so that moving samples to the origin changes nothing.

TEST(ColorFormats, YbrFull) {
    // (100, 90, 200): 100 + 1.402 * 72 = 200.9; 100 + 0.344 * 38 - 0.7141 * 72 = 61.7; 100 - 1.772 * 38
    // = 32.7. (255, 255, 255): 433.1; 255 - 134.4 = 120.6; 480.0.
    EXPECT_EQ(nativeRow("YBR_FULL", 4, {0, 128, 128, 100, 90, 200, 255, 255, 255, 128, 128, 128}),
              (Bytes{0, 0, 0, 200, 61, 32, 255, 120, 255, 128, 128, 128}));
}

TEST(ColorFormats, YbrRctAndIct) {
    EXPECT_EQ(nativeRow("YBR_RCT", 2, {0, 0, 0, 100, 8, 12}), (Bytes{0, 0, 0, 107, 95, 103}));
    // 100 + 1.402 * 20 = 128.04; 100 - 3.44 - 14.28 = 82.28; 100 + 17.72 = 117.72
    EXPECT_EQ(nativeRow("YBR_ICT", 2, {0, 0, 0, 100, 10, 20}), (Bytes{0, 0, 0, 128, 82, 117}));
}

TEST(ColorFormats, NativeSubsampledFramesLieTwoBytesAPixelApart) {
    // Y1 Y2 Cb Cr for every two pixels; (0, 90, 200) has 100.9 and two negative channels.
    TestObject object({.columns = 4, .samples = 3, .photometric = "YBR_FULL_422", .frames = 2, .planar = 0},
                      Bytes{0, 100, 90, 200, 255, 128, 128, 128, 0, 1, 128, 128, 100, 100, 90, 200});
    const Converted converted(object);
    ASSERT_EQ(converted.frames().size(), 2U);
    EXPECT_EQ(converted.bytes(), (Bytes{100, 0, 0, 200, 61, 32, 255, 255, 255, 128, 128, 128}));
    EXPECT_EQ(converted.frames()[1].bytes, (Bytes{0, 0, 0, 1, 1, 1, 200, 61, 32, 200, 61, 32}));

    // A last pixel without a partner, 128, takes the colour of the pair before it: 228.9, 89.7 and 60.7.
    EXPECT_EQ(nativeRow("YBR_FULL_422", 3, {0, 100, 90, 200, 128, 0}),
              (Bytes{100, 0, 0, 200, 61, 32, 228, 89, 60}));

    // (81, 90, 240): 75.66 + 178.75 = 254.4, the others below 0; (16, 90, 240): 178.75; 1.164 * 219 = 254.9.
    EXPECT_EQ(nativeRow("YBR_PARTIAL_422", 4, {81, 16, 90, 240, 0, 235, 128, 128}),
              (Bytes{254, 0, 0, 178, 0, 0, 0, 0, 0, 254, 254, 254}));
}

TEST(ColorFormats, ObjectsWhoseFramesHoldNoImageFail) {
    // Three bytes a pixel where two are told of: neither all of it nor a part is a picture.
    TestObject object({.columns = 4, .samples = 3, .photometric = "YBR_FULL_422", .planar = 0}, Bytes(12, 1));
    CapturingProcess process(object.reload());
    EXPECT_EQ(process.process(), 1);
    EXPECT_EQ(process.failureCause(),
              "frame 1 of 1 holds 8 bytes of YBR_FULL_422, an image has 12 samples: no image");
}

TEST(ColorFormats, SixteenBitColourKeepsItsTopBits) {
    const auto kept = [](Uint16 stored, const Words& samples) {
        TestObject object({.columns = static_cast<Uint16>(samples.size() / 3),
                           .allocated = 16,
                           .stored = stored,
                           .samples = 3,
                           .photometric = "RGB",
                           .planar = 0},
                          samples);
        return Converted(object).bytes();
    };
    EXPECT_EQ(kept(16, {0x00FF, 0x1234, 0xFFFF, 0x8000, 0x7FFF, 0x0100}),
              (Bytes{0x00, 0x12, 0xFF, 0x80, 0x7F, 0x01}));
    EXPECT_EQ(kept(12, {0xF00F, 0x0ABC, 0x0FFF}), (Bytes{0x00, 0xAB, 0xFF}));
}

TEST(ColorFormats, PlanesOfNativeRleAndJpegObjects) {
    const Planes image;
    TestObject native;
    describePlanes(native, image.planes, 1);
    EXPECT_EQ(Converted(native).bytes(), image.pixels);

    const Encoders encoders;
    for (E_TransferSyntax syntax : {EXS_RLELossless, EXS_JPEGProcess14SV1}) {
        for (uint16_t planar : {1, 0}) {
            TestObject object;
            describePlanes(object, planar == 1 ? image.planes : image.pixels, planar);
            const DJ_RPLossless parameter;
            const bool jpeg = syntax == EXS_JPEGProcess14SV1;
            ASSERT_TRUE(object.dataset().chooseRepresentation(syntax, jpeg ? &parameter : nullptr).good());
            // Whatever the encoder made of it: the attribute decides how a frame is decoded.
            object.words(0x0028, 0x0006, EVR_US, {planar});
            EXPECT_EQ(Converted(object, syntax).bytes(), image.pixels)
                << DcmXfer(syntax).getXferName() << planar;
            EXPECT_EQ(object.dataset().getOriginalXfer(), syntax);
        }
    }
}

TEST(ColorFormats, RleWithoutPlanarConfigurationIsRepairedInTheObjectOnly) {
    const Planes image;
    const Encoders encoders;
    TestObject object;
    describePlanes(object, image.planes, 1);
    ASSERT_TRUE(object.dataset().chooseRepresentation(EXS_RLELossless, nullptr).good());
    object.dataset().findAndDeleteElement(DCM_PlanarConfiguration);
    const Converted converted(object, EXS_RLELossless);
    Uint16 planar = 0;
    EXPECT_TRUE(object.dataset().findAndGetUint16(DCM_PlanarConfiguration, planar).good());
    EXPECT_EQ(planar, 1);
    EXPECT_EQ(converted.frame().layout, "bypixel");
    EXPECT_EQ(converted.bytes(), image.planes) << "the planes that were decoded are taken as pixels";
}
