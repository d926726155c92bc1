// Overlay planes of their own and in the bits of the samples, and where they end up.
#include "imgproc/overlay.h"
#include "tests/imgproc/capturingprocess.h"

namespace {

/// One bit of every sample, the first in the lowest bit of the first byte.
Bytes bitsOf(const Words& samples, int position) {
    Bytes bitmap((samples.size() + 7) / 8, 0);
    for (size_t i = 0; i < samples.size(); ++i)
        if ((samples[i] >> position) % 2 != 0)
            bitmap[i / 8] = static_cast<uint8_t>(bitmap[i / 8] | 1 << i % 8);
    return bitmap;
}

/// Samples that use all 16 bits; the first is 0xF000, whose lower 12 bits are 0.
Words noise(size_t count) {
    Words samples{0xF000};
    for (uint32_t state = 12345; samples.size() < count;) {
        state = state * 1664525 + 1013904223;
        samples.push_back(static_cast<uint16_t>(state >> 16));
    }
    return samples;
}

}  // namespace

TEST(Overlay, StatusOfEveryRoad) {
    COverlay own("0");
    EXPECT_EQ(own.finalizeData(), OVERLAY_NOT_APPLICABLE);
    const unsigned char bytes[] = {1, 2, 3};
    EXPECT_EQ(own.initData(0, OVERLAY_READ_DATA), OVERLAY_SIZE_ZERO);
    EXPECT_EQ(own.initData(3, OVERLAY_READ_DATA), OVERLAY_IN_PROGRESS);
    EXPECT_EQ(own.putData(bytes, 2), OVERLAY_IN_PROGRESS);
    EXPECT_EQ(own.putData(bytes, 2), OVERLAY_OVERFLOW);
    EXPECT_EQ(own.data(), (Bytes{1, 2, 0}));

    COverlay sampled("1");
    sampled.setBitsAllocated(1);
    sampled.setBitPosition(3);
    EXPECT_EQ(sampled.initData(1, OVERLAY_READ_CHOOSE), OVERLAY_NOT_APPLICABLE) << "1 bit allocated";
}

TEST(Overlay, PlanesOfTheirOwnMoveToThePrivateBlock) {
    TestObject object({.rows = 2, .columns = 4}, Bytes{1, 2, 3, 4, 5, 6, 7, 8});
    object.overlay(0x6000, 1, 0, 2, 4);
    object.words(0x6000, 0x3000, EVR_OW, {0x005A});
    object.overlay(0x6002, 1, 0, 2, 4);
    object.bytes(0x6002, 0x3000, EVR_OB, {1, 2, 3, 4, 5, 6});  // longer than its plane
    for (E_TransferSyntax syntax : {EXS_LittleEndianImplicit, EXS_LittleEndianExplicit}) {
        DcmDataset& dataset = object.reload(syntax);
        std::unique_ptr<DcmDataset> copy(new DcmDataset(dataset));
        CapturingProcess process(*copy);
        ASSERT_EQ(process.process(), 0);
        EXPECT_EQ(storedOverlays(*copy), (std::vector<Bytes>{{0x5A, 0x00}, {1, 2, 3, 4, 5, 6}}));
        EXPECT_FALSE(copy->tagExists(DcmTagKey(0x6000, 0x3000)));
        EXPECT_TRUE(copy->tagExists(DcmTagKey(0x6000, 0x0010)));
        ASSERT_EQ(process.overlays().count(), 2);
        EXPECT_EQ(process.overlays().at(1)->name(), "1");
        EXPECT_EQ(process.overlays().at(0)->status(), OVERLAY_COMPLETE);
        EXPECT_EQ(process.overlays().at(0)->rows(), 2);
    }
}

TEST(Overlay, ASeventeenthGroupIsIgnored) {
    TestObject object({.rows = 1, .columns = 2}, Bytes{1, 2});
    for (Uint16 i = 0; i < 17; ++i) {
        object.overlay(static_cast<Uint16>(0x6000 + 2 * i), 1, 0, 1, 2);
        object.bytes(static_cast<Uint16>(0x6000 + 2 * i), 0x3000, EVR_OB, {static_cast<uint8_t>(i), 0});
    }
    const Converted process(object);
    const auto overlays = storedOverlays(object.dataset());
    ASSERT_EQ(overlays.size(), 16U);
    EXPECT_EQ(overlays[15], (Bytes{15, 0}));
    EXPECT_EQ(process.frames().size(), 1U);
}

TEST(Overlay, BitsOfSixteenBitSamples) {
    // 5 x 5 pixels: the bitmap's last byte holds the 25th pixel and takes seven bits of the second frame.
    const auto samples = noise(50);
    TestObject object({.rows = 5, .columns = 5, .allocated = 16, .stored = 12, .frames = 2}, samples);
    object.overlay(0x6000, 16, 12);
    object.overlay(0x6002, 16, 15);
    object.overlay(0x6004, 16, 0);             // not in the samples
    object.overlay(0x6006, 1, 0);              // no data: a plane of zeros
    object.overlay(0x6008, 16, 40);            // beyond the sample
    object.bytes(0x600A, 0x3000, EVR_OB, {});  // as good as none
    Converted process(object);
    const Words first32(samples.begin(), samples.begin() + 32);
    EXPECT_EQ(
        storedOverlays(object.dataset()),
        (std::vector<Bytes>{bitsOf(first32, 12), bitsOf(first32, 15), {}, {0, 0, 0, 0}, {0, 0, 0, 0}, {}}));
    EXPECT_EQ(process.overlays().at(0)->status(), OVERLAY_OVERFLOW);
    EXPECT_EQ(process.overlays().at(2)->status(), OVERLAY_NOT_APPLICABLE);
    ASSERT_EQ(process.frames().size(), 2U);
    Words kept(samples.begin(), samples.begin() + 25);
    for (uint16_t& sample : kept)
        sample &= 0x0FFF;
    EXPECT_EQ(process.words(), kept) << "the smallest sample is 0, so nothing is shifted";
}

TEST(Overlay, BitsOfByteAndOfPackedSamples) {
    // Six bits stored at 5..0 and an overlay in bit 7; 9 pixels. Six stored bits are brought up to the top.
    const Bytes samples{0x80, 0x3F, 0xC1, 0x02, 0x43, 0x84, 0x05, 0xFF, 0x91};
    TestObject bytes({.rows = 3, .columns = 3, .allocated = 8, .stored = 6}, samples);
    bytes.overlay(0x6000, 8, 7);
    EXPECT_EQ(Converted(bytes).bytes(), (Bytes{0, 0xFC, 0x04, 0x08, 0x0C, 0x10, 0x14, 0xFC, 0x44}));
    EXPECT_EQ(storedOverlays(bytes.dataset()), (std::vector<Bytes>{{0b10100101, 0b1}}));

    // Two samples in three bytes, ten bits stored, an overlay in bit 11: 0x800, 0x3FF, 0x801, 0x002.
    TestObject packed({.rows = 2, .columns = 2, .allocated = 12, .stored = 10},
                      Bytes{0x00, 0xF8, 0x3F, 0x01, 0x28, 0x00});
    packed.overlay(0x6000, 12, 11);
    // Packed samples keep the bits above the stored ones; the smallest value, 2, becomes 0.
    EXPECT_EQ(Converted(packed).words(), (Words{0x7FE, 0x3FD, 0x7FF, 0}));
    EXPECT_EQ(storedOverlays(packed.dataset()), (std::vector<Bytes>{{0b0101, 0}}));
}

TEST(Overlay, BitsAreNotTakenWhenAllBitsAreStored) {
    const Words samples{0x0000, 0xF000, 0x1000, 0xFFFF};
    TestObject object({.rows = 1, .columns = 4, .allocated = 16, .stored = 16}, samples);
    object.overlay(0x6000, 16, 12);
    EXPECT_EQ(Converted(object).words(), samples);
    EXPECT_EQ(storedOverlays(object.dataset()), (std::vector<Bytes>{{0, 0}}));
}

TEST(Overlay, OverlaysWithoutAnImageAndDataThatIsASequence) {
    TestObject object;
    object.overlay(0x6000, 1, 0, 1, 8);
    auto* sequence = new DcmSequenceOfItems(DcmTag(0x6000, 0x3000, DcmVR(EVR_SQ)));
    sequence->append(new DcmItem);
    object.dataset().insert(sequence);
    const Converted process(object);
    EXPECT_EQ(storedOverlays(object.dataset()), std::vector<Bytes>{{}});
    EXPECT_FALSE(object.dataset().tagExists(DcmTagKey(0x6000, 0x3000)));
}
