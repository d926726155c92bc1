#include <random>

#include "keltlegacy/decoder.h"
#include "tests/keltlegacy/pictures.h"

namespace {

using keltlegacy::DecodeStatus;

struct Case {
    int bytesPerPixel, w, h;
};
constexpr Case kCases[] = {{1, 128, 128}, {2, 128, 96}, {3, 65, 33}, {2, 1, 9}, {1, 4, 4}, {3, 4096, 2}};

TEST(LegacyDecoderTest, AWholeStreamGivesTheExactPicture) {
    for (const auto [bytesPerPixel, w, h] : kCases)
        for (int kind = 0; kind < kPictureKinds; ++kind) {
            const Bytes pixels = picture(kind, bytesPerPixel, w, h);
            const Bytes payload = compress(pixels, 9, bytesPerPixel, w, h);
            keltlegacy::Picture picture;
            ASSERT_EQ(keltlegacy::decode(payload, picture), DecodeStatus::Ok);
            EXPECT_TRUE(picture.complete);
            EXPECT_EQ(picture.samples, pixels)
                << w << " x " << h << " x " << bytesPerPixel << " kind " << kind;
            EXPECT_EQ(picture.bitsUsed, 9);
            EXPECT_EQ((picture.bitsRead + 7) / 8 + 10, payload.size());
        }
}

double meanError(const Bytes& a, const Bytes& b) {
    double sum = 0;
    for (size_t i = 0; i < a.size(); ++i)
        sum += std::abs(int{a[i]} - int{b[i]});
    return sum / static_cast<double>(a.size());
}

TEST(LegacyDecoderTest, EveryPrefixGivesAPictureThatImproves) {
    const Bytes pixels = picture(1, 1, 64, 64);
    const Bytes payload = compress(pixels, 8, 1, 64, 64);
    double before = 255;
    for (size_t length = 10; length <= payload.size(); ++length) {
        keltlegacy::Picture picture;
        ASSERT_EQ(keltlegacy::decode(std::span(payload).first(length), picture), DecodeStatus::Ok) << length;
        ASSERT_EQ(picture.samples.size(), pixels.size());
        EXPECT_EQ(picture.complete, length == payload.size());
        if (length % 64 != 0) continue;
        const double error = meanError(picture.samples, pixels);
        EXPECT_LE(error, before + 0.5) << length;
        before = error;
    }
    EXPECT_LT(before, 1.0);
}

TEST(LegacyDecoderTest, HeadersThatMakeNoSenseAreRefused) {
    keltlegacy::Picture picture;
    const auto status = [&](Bytes payload, uint64_t limit = keltlegacy::kDefaultPixelLimit) {
        return keltlegacy::decode(payload, picture, limit);
    };
    EXPECT_EQ(status({}), DecodeStatus::NotLegacy);
    EXPECT_EQ(status({'K', 'T', '1', '0', 1, 8, 1, 0, 1}), DecodeStatus::NotLegacy);
    EXPECT_EQ(status({'K', 'T', '4', '1', 1, 8, 1, 0, 1, 0}), DecodeStatus::NotLegacy);
    EXPECT_EQ(status({'K', 'T', '1', '0', 0, 8, 1, 0, 1, 0}), DecodeStatus::BadPixelFormat);
    EXPECT_EQ(status({'K', 'T', '1', '0', 4, 8, 1, 0, 1, 0}), DecodeStatus::BadPixelFormat);
    EXPECT_EQ(status({'K', 'T', '1', '0', 1, 8, 0, 0, 1, 0}), DecodeStatus::NoPixels);
    EXPECT_EQ(status({'K', 'T', '1', '0', 1, 8, 255, 255, 255, 255}), DecodeStatus::TooLarge);
    EXPECT_EQ(status({'K', 'T', '1', '0', 1, 8, 3, 0, 2, 0}, 5), DecodeStatus::TooLarge);
    EXPECT_EQ(status({'K', 'T', '1', '0', 1, 8, 3, 0, 2, 0}, 6), DecodeStatus::Ok);
    EXPECT_EQ(picture.samples, Bytes(6, 0));
    EXPECT_EQ(status({'K', 'T', '1', '0', 1, 8, 3, 0, 2, 0, 15}), DecodeStatus::Damaged) << "too many planes";
    EXPECT_EQ(status({'K', 'T', '1', '0', 1, 8, 3, 0, 2, 0, 0, 1}), DecodeStatus::Damaged) << "k = 1";
    EXPECT_EQ(status({'K', 'T', '1', '0', 1, 8, 3, 0, 2, 0, 0, 3 | 1 << 5 | 3 << 6, 3}),
              DecodeStatus::Damaged)
        << "a run of 7 among 6 coefficients";
}

/// Whatever follows a plausible header, decoding ends with a picture or a status; the sanitizers watch.
TEST(LegacyDecoderTest, DamagedStreamsDoNoHarm) {
    std::mt19937 random(11);
    for (const auto [bytesPerPixel, w, h] : kCases) {
        const Bytes payload = compress(picture(0, bytesPerPixel, w, h), 8, bytesPerPixel, w, h);
        for (int round = 0; round < 60; ++round) {
            Bytes damaged = payload;
            if (round % 3 == 0) damaged.resize(10 + random() % (payload.size() - 9));
            for (int flips = round % 20; flips >= 0; --flips)
                damaged[random() % std::min<size_t>(damaged.size(), round % 2 ? 40 : 100000)] ^=
                    static_cast<uint8_t>(1u << random() % 8);
            keltlegacy::Picture picture;
            const DecodeStatus status = keltlegacy::decode(damaged, picture, 1 << 20);
            if (status == DecodeStatus::Ok)
                EXPECT_EQ(picture.samples.size(),
                          size_t(picture.width) * picture.height * picture.bytesPerPixel);
            else
                EXPECT_STRNE(describe(status), "unknown status");
        }
    }
}

}  // namespace
