// Palette colour tables, plain and segmented, true and lying.
#include "imgproc/segmentedpalette.h"
#include "tests/imgproc/capturingprocess.h"

namespace {

/// A PALETTE COLOR object of one row of samples; the tables are left to the test.
class PaletteObject : public TestObject {
public:
    explicit PaletteObject(const Bytes& samples) {
        describe({.columns = static_cast<Uint16>(samples.size()), .photometric = "PALETTE COLOR"});
        pixels(samples);
    }
    explicit PaletteObject(const Words& samples) {
        describe({.columns = static_cast<Uint16>(samples.size()),
                  .allocated = 16,
                  .stored = 16,
                  .photometric = "PALETTE COLOR"});
        pixels(samples);
    }
    void descriptors(const Words& values, DcmEVR vr = EVR_US) {
        for (Uint16 channel = 1; channel <= 3; ++channel)
            words(0x0028, 0x1100 + channel, vr, values);
    }
    void tables(const Words& red, const Words& green, const Words& blue, Uint16 first = 0x1201) {
        table(0, EVR_OW, red, first);
        table(1, EVR_OW, green, first);
        table(2, EVR_OW, blue, first);
    }
    void table(int channel, DcmEVR vr, const Words& values, Uint16 first = 0x1201) {
        words(0x0028, static_cast<Uint16>(first + channel), vr, values);
    }
};

/// Words whose bytes, in the file's order, are 0, 1, 2, ...
Words countingBytes(int count, int start) {
    Words words;
    for (int i = 0; i < count; i += 2)
        words.push_back(static_cast<uint16_t>((start + i) % 256 | (start + i + 1) % 256 << 8));
    return words;
}

}  // namespace

TEST(Palette, EightBitEntriesAreBytesWhateverHoldsThem) {
    // The channels are told apart by their start, 7, 17 and 27, and count up modulo 256: samples 0, 1 and 248
    // give 7 17 27, 8 18 28 and 255 9 19. The smallest, 7, becomes 0.
    const Bytes expected{0, 10, 20, 1, 11, 21, 248, 2, 12};
    for (DcmEVR vr : {EVR_OW, EVR_US}) {
        PaletteObject object(Bytes{0, 1, 248});
        object.descriptors({256, 0, 8});
        for (int channel = 0; channel < 3; ++channel)
            object.table(channel, vr, countingBytes(256, 7 + 10 * channel));
        EXPECT_EQ(Converted(object).bytes(), expected);
    }
}

TEST(Palette, SixteenBitEntriesGiveTheirHighByteAndTheLastEntryServesTheRest) {
    PaletteObject object(Words{0, 1, 2, 300, 65535});
    object.descriptors({3, 100, 16}, EVR_SS);  // the first mapped value plays no part
    object.table(0, EVR_OW, {0x00FF, 0x1234, 0xFFFF});
    object.table(1, EVR_OW, {0x0100, 0x2200, 0x3300});
    object.table(2, EVR_US, {0x8000});  // shorter than its descriptor
    EXPECT_EQ(Converted(object).bytes(),
              (Bytes{0, 1, 0x80, 0x12, 0x22, 0, 0xFF, 0x33, 0, 0xFF, 0x33, 0, 0xFF, 0x33, 0}));
}

TEST(Palette, SixtyFiveThousandEntriesAreWrittenAsZero) {
    Words table(65536);
    for (size_t i = 0; i < table.size(); ++i)
        table[i] = static_cast<uint16_t>(i);
    PaletteObject object(Words{0, 0x0180, 0xFFFF});
    object.descriptors({0, 0, 16});
    // 128 KiB do not fit the length field of a US element; the usual VR has room.
    object.tables(table, table, table);
    EXPECT_EQ(Converted(object).bytes(), (Bytes{0, 0, 0, 1, 1, 1, 255, 255, 255}));
}

TEST(Palette, LyingDescriptorsGiveBlackEntries) {
    const Words lies[] = {{4, 0}, {4, 0, 12}, {4, 0, 0}, {4, 0, 8, 0}};
    for (const Words& descriptor : lies) {
        PaletteObject object(Bytes{0, 3, 255});
        object.descriptors(descriptor);
        object.tables({0xFFFF, 0xFFFF}, {0xFFFF, 0xFFFF}, {0xFFFF, 0xFFFF});
        EXPECT_EQ(Converted(object).bytes(), Bytes(9, 0)) << descriptor.size() << " values";
    }
    // More entries than data: the rest is black. More data than entries: the last entry serves.
    PaletteObject object(Bytes{0, 3, 4, 255});
    object.descriptors({4, 0, 8});
    object.words(0x0028, 0x1102, EVR_US, {200, 0, 8});
    const Words six{0x0201, 0x0403, 0x0605};
    object.tables(six, six, six);
    EXPECT_EQ(Converted(object).bytes(), (Bytes{1, 1, 1, 4, 4, 4, 4, 5, 4, 4, 0, 4}));
}

TEST(Palette, AnObjectWithoutTablesFailsWithAMessage) {
    PaletteObject object(Bytes{0, 1});
    object.descriptors({256, 0, 8});
    object.table(0, EVR_OW, countingBytes(256, 0));
    object.table(1, EVR_OW, countingBytes(256, 0));
    CapturingProcess process(object.reload());
    EXPECT_NE(process.process(), 0);
    EXPECT_TRUE(contains(process.failureCause(), "blue palette"));
    EXPECT_TRUE(process.frames().empty());
}

TEST(Palette, PlanarConfigurationTurnsThePixelsAsWell) {
    // Samples are added pixel by pixel and yet taken as planes: RGB RGB becomes R(1) B(1) G(2) / G(1) R(2)
    // B(2).
    PaletteObject object(Bytes{0, 1});
    object.words(0x0028, 0x0006, EVR_US, {1});
    object.descriptors({2, 0, 8});
    object.tables({0x1000}, {0x2001}, {0x3002});
    EXPECT_EQ(Converted(object).bytes(), (Bytes{0x00, 0x02, 0x20, 0x01, 0x10, 0x30}));
}

TEST(SegmentedPalette, DiscreteLinearAndIndirectSegments) {
    PaletteObject object(Bytes{0, 1, 2, 3, 4, 5, 6, 7});
    object.descriptors({8, 0, 16});
    // Two values, a ramp of three up to 0x4000, and the ramp and the values before it once more.
    const Words red{0, 2, 0x0000, 0x1000, 1, 3, 0x4000, 2, 1, 0, 0};
    const Words rest{0, 8, 0x0100, 0x0100, 0x0100, 0x0100, 0x0100, 0x0100, 0x0100, 0x0100};
    object.tables(red, rest, rest, 0x1221);
    const int expected[] = {0x00, 0x10, 0x20, 0x30, 0x40, 0x00, 0x10, 0x00};
    const Bytes result = Converted(object).bytes();
    ASSERT_EQ(result.size(), 24U);
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(result[3 * i], expected[i]) << "entry " << i;
        EXPECT_EQ(result[3 * i + 1], 1);
    }
}

TEST(SegmentedPalette, RampsRoundAndFallAndBytesHaveLongOffsets) {
    const Bytes bytes{0, 2, 10, 0, 1, 4, 6, 1, 2, 0, 2, 1, 4, 0, 0, 0};
    //                 discrete     ramp     ramp     the first ramp again, from the last entry, 0
    EXPECT_EQ(expandSegmentedPalette(bytes, 8, 100), (Words{10, 0, 2, 3, 5, 6, 3, 0, 2, 3, 5, 6}));
    EXPECT_EQ(expandSegmentedPalette(bytes, 8, 5), (Words{10, 0, 2, 3, 5}));
}

TEST(SegmentedPalette, NonsenseEndsTheTable) {
    const auto expand = [](const Bytes& bytes) { return expandSegmentedPalette(bytes, 8, 1000); };
    EXPECT_EQ(expand({1, 4, 6}), Words{}) << "a ramp from nowhere";
    EXPECT_EQ(expand({0, 0, 0, 1, 7}), Words{}) << "a segment without entries";
    EXPECT_EQ(expand({0, 1, 7, 3, 1, 1}), Words{7}) << "an unknown kind";
    EXPECT_EQ(expand({0, 1, 7, 2, 255, 3, 0, 0, 0}), Words{7}) << "a segment that repeats itself";
    EXPECT_EQ(expand({0, 1, 7, 2, 1, 0, 0, 0, 1}), Words{7}) << "an offset beyond the data";
    EXPECT_EQ(expand({0, 1, 7, 2, 255, 0, 0, 0, 0}), (Words{7, 7}))
        << "repeats that run into the segment itself";
    EXPECT_EQ(expandSegmentedPalette(Bytes{0, 0, 1, 0, 7, 0, 2, 0, 1, 0, 1, 0, 0, 0}, 16, 9), Words{7})
        << "an offset between words";
    EXPECT_EQ(expandSegmentedPalette(Bytes{0, 1, 7}, 12, 9), Words{});
    // Every cut of a good table gives a beginning of the good result.
    const Bytes good{0, 2, 10, 0, 1, 4, 6, 2, 1, 4, 0, 0, 0};
    const Words whole = expand(good);
    ASSERT_EQ(whole.size(), 10U);
    for (size_t cut = 0; cut < good.size(); ++cut) {
        const Words part = expand(Bytes(good.begin(), good.begin() + static_cast<long>(cut)));
        EXPECT_TRUE(part.size() < whole.size() && std::equal(part.begin(), part.end(), whole.begin())) << cut;
    }
}
