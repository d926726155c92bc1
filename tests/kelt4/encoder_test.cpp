#include <gtest/gtest.h>

#include <cstdlib>

#include "kelt4/bitchunkencoder.h"
#include "kelt4/filter5_3.h"
#include "tests/kelt4/frames.h"
#include "tests/kelt4/modelencoder.h"

using namespace dvq::kelt4;

namespace {

/// "10 1 ..." with spaces ignored, first bit first.
Bytes bytesOf(const std::string& bits) {
    Bytes bytes;
    size_t count = 0;
    for (const char bit : bits) {
        if (bit == ' ') continue;
        if (count % 8 == 0) bytes.push_back(0);
        if (bit == '1') bytes.back() = static_cast<uint8_t>(bytes.back() | 1 << count % 8);
        ++count;
    }
    return bytes;
}

Bytes join(Bytes head, const Bytes& tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

std::vector<int32_t> lifted(std::vector<int32_t> x) {
    CFilter5_3<int32_t>::lift(x.data(), static_cast<int64_t>(x.size()), 1);
    return x;
}

class EveryKernel : public testing::TestWithParam<std::string> {
protected:
    static const Kernel& kernel() { return findKernel(GetParam()); }
};

std::vector<std::string> kernelNames() {
    std::vector<std::string> names;
    for (const Kernel& kernel : availableKernels())
        names.emplace_back(kernel.name);
    return names;
}

INSTANTIATE_TEST_SUITE_P(Kelt, EveryKernel, testing::ValuesIn(kernelNames()),
                         [](const auto& parameter) { return parameter.param; });

}  // namespace

TEST(KeltFilter, RoundsHalvesAwayFromZero) {
    EXPECT_EQ(lifted({1, 4, 2, 7}), (std::vector<int32_t>{2, 2, 4, 5}));
    EXPECT_EQ(lifted({0, -3, -1}), (std::vector<int32_t>{-1, -2, -2}));
    EXPECT_EQ(lifted({9}), (std::vector<int32_t>{9}));
    using Filter = CFilter5_3<int32_t>;
    EXPECT_EQ(Filter::roundHalf(-3), -2);
    EXPECT_EQ(Filter::roundHalf(3), 2);
    EXPECT_EQ(Filter::roundQuarter(-2), -1);
    EXPECT_EQ(Filter::roundQuarter(2), 1);
    EXPECT_EQ(Filter::roundQuarter(-1), 0);
}

TEST(KeltWriter, RunCodes) {
    const std::pair<uint64_t, const char*> codes[] = {
        {0, "1"}, {1, "01"}, {2, "0010"}, {3, "0011"}, {4, "000100"}, {5, "000110"}, {8, "00001000"}};
    for (const auto& [run, bits] : codes) {
        CBitChunkEncoder encoder;
        for (uint64_t i = 0; i < run; ++i)
            encoder.addZero();
        encoder.addOne(true);
        CBitChunkWriter out;
        encoder.chunk().writeBitsTo(&out, 0);
        EXPECT_EQ(out.getTotal(), std::string(bits).size() + 1) << run;
        EXPECT_EQ(runCode(run).bits, bytesOf(bits)[0]) << run;
    }
}

TEST(KeltWriter, ChunksGrowAndCutExactly) {
    CBitChunkWriter writer;
    const uint64_t total = 64 * CBitChunkWriter::kChunkWords + 100;
    for (uint64_t i = 0; i < total; ++i)
        writer.putBit(i % 3 == 0);
    EXPECT_EQ(writer.getTotal(), total);
    CBitChunkWriter out;
    out.putBits(5, 3);
    writer.writeBitsTo(&out, total - 1);
    EXPECT_EQ(out.getTotal(), total + 2);
}

TEST_P(EveryKernel, PayloadsWorkedOutByHand) {
    // Two samples, 0 and 5: no transform, T = 2, fields of 2 bits. Plane 2: run 1, sign, closing run 0: 4
    // bits, which the field cannot hold. Then the empty planes 1 and 0 (4.2e11 each), then the refinements of
    // planes 1 (0) and 0 (1).
    const TestFrame two{2, 1, 1, {0, 5}};
    const Bytes header = {'K', 'T', '4', '1', 1, 8, 2, 0, 1, 0, 0, 0, 0, 0, 0, 0};
    const std::string start = "01000000 00000000";
    EXPECT_EQ(encode(two, kernel()),
              join(header, bytesOf(start + "00 0000 0 00 01 0 1" + "00 0000 0 00" + "00 0000 0 00" +
                                   "00 0000 1 10 0" + "00 0000 1 10 1" + "11 000000000")));

    // All zero: T = 0, fields of 9 and 7 bits, one empty significance chunk per class.
    const Bytes header16 = {'K', 'T', '4', '1', 1, 8, 16, 0, 16, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(encode(makeFrame(16, 16, 1, Content::kZero), kernel()),
              join(header16, bytesOf("00000000 10000000"
                                     "00 0000 0 000000000"
                                     "00 1000 0 0000000"
                                     "11 000000000")));

    // One RGB pixel gives 22, -10 and 20. One coefficient a component, T = 4, B = 1.
    const Bytes headerColour = {'K', 'T', '4', '1', 3, 8, 1, 0, 1, 0, 0, 0, 0, 0, 0, 0};
    const std::string empty0 = "00 0000 0 0", empty1 = "10 0000 0 0";
    const std::string expected = "00100000 00000000" +
                                 // The empty plane 4 of component 1 scores 4.2e11, plane 4 of component 0
                                 // 8 * 3.7^4 / 4 = 375; after it nothing is left to find in component 0.
                                 empty1 + "00 0000 0 1 101" + empty0 + empty0 + empty0 + empty0;
    const Bytes coded = encode({1, 1, 3, {10, 20, 40}}, kernel());
    EXPECT_EQ(coded, modelEncode({10, 20, 40}, 3, 8, 1, 1));
    EXPECT_EQ(Bytes(coded.begin(), coded.begin() + 16), headerColour);
    const Bytes begin = bytesOf(expected);
    EXPECT_EQ(Bytes(coded.begin() + 16, coded.begin() + 16 + 8), Bytes(begin.begin(), begin.begin() + 8));
}

TEST_P(EveryKernel, EqualsTheModel) {
    const std::pair<int, int> sizes[] = {{1, 1},   {1, 2},   {3, 1},   {1, 90},   {15, 40},  {16, 16},
                                         {17, 16}, {31, 33}, {61, 67}, {128, 64}, {70, 130}, {257, 256}};
    for (const auto& [width, height] : sizes) {
        for (const int bytesPerPixel : {1, 2, 3}) {
            for (const Content content : kContents) {
                TestFrame frame = makeFrame(width, height, bytesPerPixel, content);
                frame.bitsUsed = 300;
                ASSERT_EQ(encode(frame, kernel()),
                          modelEncode(frame.pixels, bytesPerPixel, 300, width, height))
                    << width << "x" << height << "x" << bytesPerPixel << ", content "
                    << static_cast<int>(content);
            }
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
                                     bytesOf("00000000 00000000 00 0000 0 11 000000000")));
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
