#include "tests/keltlegacy/pictures.h"

namespace {

/// The sums were made by a coder that followed the format coefficient by coefficient and bit by bit.
TEST(LegacyCoderTest, StreamsOfEveryKindOfPicture) {
    const struct {
        int w, h;
        uint64_t sums[3];  ///< of the streams of all kinds, for 1, 2 and 3 bytes a pixel
    } cases[] = {
        {128, 128, {0xFA93EA13266CB239, 0x7EB26320B2BBE05A, 0x8DCA1E2411D34A2C}},
        {128, 20, {0xF55D08D501E1E028, 0x4B88DC7FA84C12E5, 0xBB9ED1B3CBB0623D}},
        {32, 32, {0x874DCEE55517C253, 0xDFBD24CA3F9C2944, 0x1AED4CC28328B984}},
        {33, 47, {0x05511C78A1CA8758, 0x2692A40BE428EE4F, 0xCFC76DE4828BB501}},
        {2, 2, {0xC0C750868A775FDD, 0x09B594D1AA9AC19D, 0x12A52D2FC46BCD5D}},
        {1, 1, {0x41AE4029D90373AF, 0xB8DF26FC0F43A6B0, 0xCC87D2904401E9A5}},
        {1, 40, {0x52541F21F82C674D, 0x7986AA6AFFA4BA08, 0xFB215E13F9835FD5}},
        {40, 1, {0x4029FFF59E2AE154, 0xB4CC5B8905ECB341, 0x787F2E2CCA74ECE1}},
        {3, 64, {0xEA226D840CC3B3C2, 0xDBFC0FEA871CD141, 0x04EED2F5A6B73527}},
        {4096, 3, {0x986D0DD55F3D2A67, 0x0ACAAF608CD04A61, 0xED48E894EA997656}},
        {65, 63, {0x4C746E062CBBA562, 0x10259B10B23E267B, 0x2E7B8E76A21A5CBA}},
        {100, 7, {0x1C71CB60810A0983, 0x6665281B9647F57E, 0x287B5FAC7A783D69}},
        {256, 32, {0x3650251C6DCE338B, 0x649F622C03E52A87, 0x58CD6EBFB598EC59}},
    };
    for (const auto& [w, h, sums] : cases)
        for (int bytesPerPixel = 1; bytesPerPixel <= 3; ++bytesPerPixel) {
            uint64_t sum = checksum({});
            for (int kind = 0; kind < kPictureKinds; ++kind)
                sum = checksum(compress(picture(kind, bytesPerPixel, w, h), 12, bytesPerPixel, w, h), sum);
            EXPECT_EQ(sum, sums[bytesPerPixel - 1]) << w << " x " << h << " x " << bytesPerPixel;
        }
}

TEST(LegacyCoderTest, IsCutAtTheBudget) {
    const Bytes pixels = picture(1, 2, 32, 32);
    const Bytes whole = compress(pixels, 16, 2, 32, 32);
    for (size_t outSize = 0; outSize <= whole.size() + 5; ++outSize) {
        const size_t length = std::clamp(outSize, keltlegacy::kHeaderSize, whole.size());
        EXPECT_EQ(compress(pixels, 16, 2, 32, 32, outSize), Bytes(whole.begin(), whole.begin() + length))
            << outSize;
    }
}

TEST(LegacyCoderTest, WhatItCannotCodeGivesTheHeader) {
    const Bytes pixels(64, 1);
    EXPECT_EQ(compress(pixels, 300, 4, 4, 2, 100), (Bytes{'K', 'T', '1', '0', 4, 44, 4, 0, 2, 0}));
    EXPECT_EQ(compress(pixels, 8, 1, 0, 2, 100).size(), keltlegacy::kHeaderSize);
    EXPECT_EQ(compress(pixels, 8, 1, 2, -1, 100).size(), keltlegacy::kHeaderSize);

    Bytes out(1000);
    keltlegacy::Compression compression(pixels.data(), 8, 1, 8, 8);
    compression.stop();
    EXPECT_GT(compression.CompressTo(out.data(), out.size()), keltlegacy::kHeaderSize);
    compression.kill();
    EXPECT_EQ(compression.CompressTo(out.data(), out.size()), keltlegacy::kHeaderSize);
}

/// A picture of one row has no levels and is coded as it is: two planes, worked out by hand.
TEST(LegacyCoderTest, StreamWorkedOutByHand) {
    const Bytes pixels{2, 0, 0, 3};  // 4 x 1, no levels; top plane 1
    // T = 1 in 8 bits. Plane 1: no refinement; two of four significant, k = 0 in 5 bits;
    // 1 + sign, two runs of one zero: 0 0, 1 + sign.
    // Plane 0: refinement 0, 1; none of two candidates significant, k = 2; one closing zero.
    EXPECT_EQ(compress(pixels, 2, 1, 4, 1, 100),
              join({'K', 'T', '1', '0', 1, 2, 4, 0, 1, 0}, packedBits("10000000 00000 10 00 10 01 01000 0")));
}

}  // namespace
