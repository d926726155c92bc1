#include <cstdlib>

#include "kelt4/filter5_3.h"
#include "tests/kelt4/frames.h"

using namespace dvq::kelt4;

namespace {

std::vector<int32_t> lifted(std::vector<int32_t> x) {
    CFilter5_3<int32_t>::lift(x.data(), static_cast<int64_t>(x.size()), 1);
    return x;
}

class EveryKernel : public testing::TestWithParam<std::string> {
protected:
    static const Kernel& kernel() { return findKernel(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(Kelt, EveryKernel, testing::ValuesIn(kernelNames(false)),
                         [](const auto& parameter) { return parameter.param; });

}  // namespace

TEST(KeltFilter, RoundsHalvesAwayFromZero) {
    EXPECT_EQ(lifted({1, 4, 2, 7}), (std::vector<int32_t>{2, 2, 4, 5}));
    EXPECT_EQ(lifted({0, -3, -1}), (std::vector<int32_t>{-1, -2, -2}));
    EXPECT_EQ(lifted({9}), (std::vector<int32_t>{9}));
}

TEST_P(EveryKernel, PayloadsWorkedOutByHand) {
    // Two samples, 0 and 5: no transform, T = 2, fields of 2 bits. Plane 2: run 1, sign, closing run 0: 4
    // bits, which the field cannot hold. Then the empty planes 1 and 0 (4.2e11 each), then the refinements of
    // planes 1 (0) and 0 (1).
    const TestFrame two{2, 1, 1, {0, 5}};
    const Bytes header = {'K', 'T', '4', '1', 1, 8, 2, 0, 1, 0, 0, 0, 0, 0, 0, 0};
    const std::string start = "01000000 00000000";
    EXPECT_EQ(encode(two, kernel()),
              join(header, packedBits(start + "00 0000 0 00 01 0 1" + "00 0000 0 00" + "00 0000 0 00" +
                                      "00 0000 1 10 0" + "00 0000 1 10 1" + "11 000000000")));

    // All zero: T = 0, fields of 9 and 7 bits, one empty significance chunk per class.
    const Bytes header16 = {'K', 'T', '4', '1', 1, 8, 16, 0, 16, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(encode(makeFrame(16, 16, 1, Content::kZero), kernel()),
              join(header16, packedBits("00000000 10000000"
                                        "00 0000 0 000000000"
                                        "00 1000 0 0000000"
                                        "11 000000000")));

    // One RGB pixel gives 22, -10 and 20. One coefficient a component, T = 4, fields of 1 bit. The empty
    // plane 4 of component 1 scores 4.2e11, plane 4 of component 0 8 * 3.7^4 / 4 = 375; after it the rest of
    // component 0 is empty, and so on: what is empty first, then the greatest power of 3.7, a fifth of it for
    // colour.
    const Bytes headerColour = {'K', 'T', '4', '1', 3, 8, 1, 0, 1, 0, 0, 0, 0, 0, 0, 0};
    const std::string empty0 = "00 0000 0 0", empty1 = "10 0000 0 0", empty2 = "01 0000 0 0";
    EXPECT_EQ(encode({1, 1, 3, {10, 20, 40}}, kernel()),
              join(headerColour,
                   packedBits("00100000 00000000" + empty1 + "00 0000 0 1 101" + empty0 + empty0 + empty0 +
                              empty0 + "01 0000 0 1 101" + empty2 + empty2 + empty2 + empty2 +
                              "00 0000 1 1 0" + "10 0000 0 1 111" + empty1 + empty1 + empty1 +
                              "00 0000 1 1 1" + "10 0000 1 0" + "01 0000 1 1 0" + "00 0000 1 1 1" +
                              "10 0000 1 1 0" + "01 0000 1 1 1" + "00 0000 1 1 0" + "10 0000 1 1 1" +
                              "01 0000 1 1 0" + "10 0000 1 1 0" + "01 0000 1 1 0" + "11 000000000")));
}

/// The sums were made by a coder that followed the format coefficient by coefficient, in doubles and lists.
TEST_P(EveryKernel, PayloadsOfEveryKindOfFrame) {
    const struct {
        int width, height;
        uint64_t sums[3];  ///< of the payloads of all contents, for 1, 2 and 3 bytes a pixel
    } cases[] = {
        {1, 1, {0x0650B85454BDE48E, 0x1DF27269E51FE294, 0xD331F9377B952F77}},
        {1, 2, {0x0EA9A9121B0C5036, 0x1B0B448CA8BBE156, 0xE81C9362A47D7D59}},
        {3, 1, {0xB59DF4753BE1E08C, 0x709769836338AEA3, 0xE84167E29D9F518D}},
        {1, 90, {0xC4658C3A48253629, 0x0C4FE4ABDB0D7410, 0x3DA3B817A26A80D8}},
        {15, 40, {0x9D9FAE18C4A2D5EB, 0x5EF60919BFECAB43, 0x3DEB8B555DE37C5F}},
        {16, 16, {0x729EAF8A31E7E31A, 0x6490CFD8A942F4B4, 0x13C235C983D5EB44}},
        {17, 16, {0x4DF0FA31C734733C, 0x1E7E48D9B6CB44A1, 0xF3EE073E9047DF8A}},
        {31, 33, {0x2FDB1A6D7FC0BCCF, 0x2BCD94C8825DC0EC, 0x3B93E72D714183CB}},
        {61, 67, {0x62EF6037F074BBF0, 0x420DD33C2673D0BB, 0x73B77D053469B185}},
        {128, 64, {0x23C2D4237974FCBA, 0x096C686A4123D043, 0xB20FA8CC0C375D8F}},
        {70, 130, {0xFF14519245D8A99A, 0xCF52A6E90B4F9528, 0x9BF0E16F57324847}},
        {257, 256, {0x393DFAC1FE2949E3, 0x570633C86B0AD687, 0xD3288E8CBCD9C3C2}},
    };
    for (const auto& [width, height, sums] : cases) {
        for (const int bytesPerPixel : {1, 2, 3}) {
            uint64_t sum = checksum({});
            for (const Content content : kContents) {
                TestFrame frame = makeFrame(width, height, bytesPerPixel, content);
                frame.bitsUsed = 300;
                sum = checksum(encode(frame, kernel()), sum);
            }
            EXPECT_EQ(sum, sums[bytesPerPixel - 1]) << width << "x" << height << "x" << bytesPerPixel;
        }
    }
}

TEST_P(EveryKernel, EqualsTheReferenceOnLargeAndRealFrames) {
    if (GetParam() == "reference") return;
    const Kernel& reference = findKernel("reference");
    const std::pair<int, int> sizes[] = {{4000, 15}, {15, 4000}, {1021, 509}, {4000, 100}, {2049, 2051}};
    for (const auto& [width, height] : sizes) {
        for (const int bytesPerPixel : {1, 2, 3}) {
            if (width > 2000 && height > 2000 && bytesPerPixel == 3) continue;
            const TestFrame frame =
                makeFrame(width, height, bytesPerPixel, width % 2 ? Content::kNoise : Content::kSmooth);
            ASSERT_EQ(encode(frame, kernel()), encode(frame, reference)) << width << "x" << height;
        }
    }
    const std::vector<TestFrame> real = realFrames();
    if (real.empty()) GTEST_SKIP() << "no corpus";
    for (const TestFrame& frame : real)
        ASSERT_EQ(encode(frame, kernel()), encode(frame, reference)) << frame.width << "x" << frame.height;
}

TEST_P(EveryKernel, StopsExactlyAtTheCapacity) {
    for (const int bytesPerPixel : {1, 2, 3}) {
        const TestFrame frame = makeFrame(40, 37, bytesPerPixel, Content::kNoise);
        const Bytes whole = encode(frame, kernel());
        for (const size_t capacity : {0, 1, 2, 3, 7, 8, 9, 15, 16, 100, 501, 504, 1000}) {
            CKeltCompressor compressor(frame.pixels.data(), bytesPerPixel, 8, 40, 37, kernel());
            compressor.limitStream(capacity);
            EXPECT_EQ(compressor.compress(0), 4);
            EXPECT_EQ(payloadOf(compressor),
                      Bytes(whole.begin(), whole.begin() + 16 + static_cast<long>(capacity)));
            EXPECT_EQ(compressor.compress(0), 4);
        }
        CKeltCompressor enough(frame.pixels.data(), bytesPerPixel, 8, 40, 37, kernel());
        enough.limitStream(whole.size() - 16);
        EXPECT_EQ(enough.compress(0), 0);
        EXPECT_EQ(payloadOf(enough), whole);
    }
}

TEST_P(EveryKernel, PausesAndGoesOn) {
    const TestFrame frame = makeFrame(33, 20, 3, Content::kNoise);
    const Bytes whole = encode(frame, kernel());
    CKeltCompressor compressor(frame.pixels.data(), 3, 8, 33, 20, kernel());
    EXPECT_EQ(compressor.payload(), nullptr);
    compressor.stop();
    EXPECT_EQ(compressor.compress(0), 8);   // after row 0
    EXPECT_EQ(compressor.compress(-7), 8);  // after row 7 of component 0, 1 and 2
    EXPECT_EQ(compressor.compress(-7), 8);
    EXPECT_EQ(compressor.compress(-7), 8);
    EXPECT_EQ(compressor.compress(-7), 0);
    EXPECT_EQ(compressor.compress(0), 0);
    EXPECT_EQ(payloadOf(compressor), whole);
    unsigned char* const block = compressor.detachPayload();
    EXPECT_EQ(compressor.payload(), nullptr);
    EXPECT_EQ(Bytes(block, block + whole.size()), whole);
    std::free(block);
}

TEST_P(EveryKernel, RefusesWhatItCannotCode) {
    const Bytes pixels(64);
    for (const auto& [bytesPerPixel, width, height] :
         {std::tuple{0, 4, 4}, {4, 4, 4}, {-1, 4, 4}, {1, -1, 4}, {1, 4, -1}, {1, 65536, 0}}) {
        CKeltCompressor compressor(pixels.data(), bytesPerPixel, 8, width, height, kernel());
        EXPECT_FALSE(compressor.isSupported());
        EXPECT_EQ(compressor.compress(0), -1);
        EXPECT_EQ(compressor.payloadSize(), 0U);
    }
    CKeltCompressor empty(pixels.data(), 1, 8, 0, 5, kernel());
    EXPECT_EQ(empty.compress(0), 0);
    EXPECT_EQ(payloadOf(empty), join({'K', 'T', '4', '1', 1, 8, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0},
                                     packedBits("00000000 00000000 00 0000 0 11 000000000")));
}

TEST(KeltKernel, NamesAreCheckedAndTheVariableForces) {
    EXPECT_THROW(findKernel("sse9"), std::invalid_argument);
    EXPECT_THROW(findKernel(""), std::invalid_argument);
    EXPECT_EQ(findKernel("portable").name, "portable");
    EXPECT_EQ(availableKernels().back().name, "reference");
    // The choice is made once per process: run the statement in a fresh one.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            setenv(kKernelVariable, "nonsense", 1);
            try {
                activeKernel();
            } catch (const std::invalid_argument&) {
                setenv(kKernelVariable, "portable", 1);
                std::_Exit(activeKernelName() == "portable" ? 7 : 1);
            }
            std::_Exit(2);
        },
        testing::ExitedWithCode(7), "");
}
