// From the bits of an object to the samples of a frame: grey images of every width.
#include "tests/imgproc/capturingprocess.h"

namespace {

Words wordsOf(const ImageShape& shape, const Words& samples) {
    TestObject object(shape, samples);
    return Converted(object).words();
}

std::vector<int> valueList(DcmDataset& dataset, unsigned short key) {
    DcmElement* element = nullptr;
    Sint32* values = nullptr;
    EXPECT_TRUE(PBItem(dataset).findAndGetPBElement(key, element).good());
    EXPECT_TRUE(element != nullptr && element->getSint32Array(values).good());
    return values != nullptr ? std::vector<int>(values, values + element->getLength() / 4)
                             : std::vector<int>{};
}

}  // namespace

TEST(SampleFormats, OneBitSamplesBecome0And128) {
    Bytes packed(13, 0);
    Bytes expected(100, 0);
    for (int pixel : {0, 1, 3, 7, 8, 50, 98, 99}) {
        packed[pixel / 8] = static_cast<uint8_t>(packed[pixel / 8] | 1 << pixel % 8);
        expected[pixel] = 128;
    }
    TestObject object({.rows = 10, .columns = 10, .allocated = 1, .stored = 1}, packed);
    const Converted converted(object);
    ASSERT_EQ(converted.frames().size(), 1U) << "the padding of the last byte is no image";
    EXPECT_EQ(converted.bytes(), expected);
    EXPECT_EQ(converted.frame().layout, "mono");
}

TEST(SampleFormats, BitsThatAreNotAlignedToBytes) {
    // 0xABC, 0x000, 0x123 and 0xFFF: twelve bits after twelve bits, lowest bits first.
    TestObject packed({.rows = 2, .columns = 2, .allocated = 12, .stored = 12},
                      Bytes{0xBC, 0x0A, 0x00, 0x23, 0xF1, 0xFF});
    EXPECT_EQ(Converted(packed).words(), (Words{0xABC, 0x000, 0x123, 0xFFF}));
    TestObject above({.rows = 2, .columns = 2, .allocated = 12, .stored = 10, .highBit = 11},
                     Bytes{0xBF, 0x3A, 0x00, 0x23, 0xF1, 0xFF});
    EXPECT_EQ(Converted(above).words(), (Words{0xABC, 0x000, 0x120, 0xFFC}));
    // Four bits from 6 down to 3, brought up to the top.
    TestObject narrow({.columns = 3, .allocated = 8, .stored = 4, .highBit = 6}, Bytes{0x00, 0x7F, 0x15});
    EXPECT_EQ(Converted(narrow).bytes(), (Bytes{0, 0xF0, 0x20}));
    // Ten bits from 11 down to 2: what lies around them goes, they are not moved down.
    EXPECT_EQ(wordsOf({.columns = 4, .allocated = 16, .stored = 10, .highBit = 11},
                      {0xF003, 0xFFFF, 0x0804, 0x1008}),
              (Words{0, 0x0FFC, 0x0804, 0x0008}));
    // A sign above the lowest bits: -8192, 4, 8188.
    EXPECT_EQ(wordsOf({.columns = 3, .allocated = 16, .stored = 12, .highBit = 13, .representation = 1},
                      {0x2000, 0x0007, 0x1FFF}),
              (Words{0, 8196, 16380}));
}

TEST(SampleFormats, SignedTwelveOfSixteenBits) {
    TestObject object({.columns = 5, .allocated = 16, .stored = 12, .representation = 1},
                      Words{0x0800, 0x07FF, 0xF000, 0x5801, 0xFFFF});  // -2048, 2047, 0, -2047, -1
    object.text(DCM_RescaleSlope, "2");
    object.text(DCM_RescaleIntercept, "10");
    const Converted converted(object);
    EXPECT_EQ(converted.words(), (Words{0, 4095, 2048, 1, 2047}));
    EXPECT_EQ(converted.frame().intercept, 10 - 2048 * 2);
    EXPECT_EQ(valueList(object.dataset(), 0x13), std::vector<int>{-2048});
    EXPECT_EQ(valueList(object.dataset(), 0x14), std::vector<int>{2047});
}

TEST(SampleFormats, BlankFramesAreZero) {
    TestObject wide({.columns = 3, .allocated = 16, .stored = 0, .highBit = 0}, Words{1, 2, 3});
    EXPECT_EQ(Converted(wide).words(), (Words{0, 0, 0}));
    EXPECT_EQ(valueList(wide.dataset(), 0x14), std::vector<int>{65535})
        << "the whole range, whatever the samples";
    TestObject narrow({.columns = 3, .allocated = 8, .stored = 0, .highBit = 0}, Bytes{1, 2, 3});
    EXPECT_EQ(Converted(narrow).bytes(), Bytes(6, 0)) << "two bytes a pixel, half of them never written";
}

TEST(SampleFormats, Monochrome1IsTurnedOver) {
    TestObject object({.columns = 3, .photometric = "MONOCHROME1"}, Bytes{10, 30, 20});
    const Converted converted(object);
    EXPECT_EQ(converted.bytes(), (Bytes{20, 0, 10}));
    EXPECT_EQ(converted.frame().intercept, 30);
    EXPECT_EQ(converted.frame().slope, -1);
    EXPECT_EQ(valueList(object.dataset(), 0x13), std::vector<int>{30});
    EXPECT_EQ(valueList(object.dataset(), 0x14), std::vector<int>{10});
}

TEST(SampleFormats, ReferenceValuesOfConstantFrames) {
    // The only window of a constant frame is [v, v + 1): width 1, center v.
    TestObject object({.rows = 2, .columns = 2, .frames = 2}, Bytes{5, 5, 5, 5, 11, 11, 11, 11});
    const Converted converted(object);
    DcmDataset& dataset = object.dataset();
    EXPECT_EQ(valueList(dataset, 0x13), (std::vector<int>{5, 11}));
    EXPECT_EQ(valueList(dataset, 0x14), (std::vector<int>{5, 11}));
    EXPECT_EQ(privateNumbers(dataset, 0x1D), (std::vector<int>{1, 2}));
    // Half a width of 1 is 0, so the mean window of the two frames is [8, 8].
    EXPECT_EQ(privateNumbers(dataset, 0x11), std::vector<int>(10, 0));
    EXPECT_EQ(privateNumbers(dataset, 0x12), std::vector<int>(10, 8));
    const Uint16* bits = nullptr;
    unsigned long count = 0;
    ASSERT_TRUE(dataset.findAndGetUint16Array(PBItem(dataset).getTag(0x1E), bits, &count).good());
    EXPECT_EQ(Words(bits, bits + count), (Words{0, 0}));

    TestObject single({.rows = 2, .columns = 2}, Bytes{7, 7, 7, 7});
    single.text(DCM_RescaleSlope, "3");
    const Converted second(single);
    EXPECT_EQ(privateNumbers(single.dataset(), 0x11), std::vector<int>(20, 3))
        << "both families of ten levels";
    EXPECT_EQ(privateNumbers(single.dataset(), 0x12), std::vector<int>(20, 21));
}

TEST(SampleFormats, LyingAttributesNeverReachBeyondTheData) {
    const ImageShape lies[] = {
        {.rows = 2, .columns = 2, .allocated = 16, .stored = 12, .highBit = 0},
        {.rows = 2, .columns = 2, .allocated = 16, .stored = 20, .highBit = 40},
        {.rows = 2, .columns = 2, .allocated = 16, .stored = 1, .highBit = 65535, .representation = 1},
        {.rows = 2, .columns = 2, .allocated = 8, .stored = 12},
        {.rows = 2, .columns = 2, .allocated = 12, .stored = 40, .highBit = 65535},
        {.rows = 2, .columns = 2, .allocated = 8, .samples = 3},
        {.rows = 2, .columns = 2, .allocated = 8, .photometric = "RGB"},
        {.rows = 2, .columns = 2, .allocated = 16, .samples = 3, .photometric = "YBR_FULL_422", .frames = 3},
        {.rows = 1, .columns = 1, .allocated = 8, .samples = 3, .photometric = "YBR_PARTIAL_422"},
        {.rows = 65535, .columns = 65535, .allocated = 16, .stored = 12},
        {.rows = 40, .columns = 40, .allocated = 1, .stored = 1, .frames = 1000},
        {.rows = 2, .columns = 2, .allocated = 3, .stored = 7, .highBit = 9},
    };
    for (const ImageShape& shape : lies) {
        TestObject object(shape, Bytes{0xFF, 1, 2, 3, 4, 5, 6, 7});
        object.overlay(0x6000, 16, 12);
        object.overlay(0x6002, 16, 65535);
        CapturingProcess process(object.reload());
        // Whether it works or fails is up to the object; a failure must say why.
        EXPECT_TRUE(process.process() == 0 || !process.failureCause().empty());
    }
}
