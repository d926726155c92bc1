#include "kelt4/decoder.h"

#include <algorithm>
#include <cstdlib>

#include "kelt4/filter5_3.h"
#include "kelt4/geometry.h"
#include "tests/kelt4/frames.h"

using namespace dvq::kelt4;

namespace {

int worstError(const Bytes& decoded, const Bytes& exact) {
    int worst = 0;
    for (size_t i = 0; i < exact.size(); ++i)
        worst = std::max(worst, std::abs(decoded[i] - exact[i]));
    return worst;
}

/// The components as the coder transforms them: the grey samples, or Y, U and V.
std::vector<std::vector<int32_t>> componentsOf(const TestFrame& frame) {
    const auto step = static_cast<size_t>(frame.bytesPerPixel);
    std::vector<std::vector<int32_t>> planes(step == 3 ? 3 : 1);
    for (size_t i = 0; i < frame.pixels.size(); i += step) {
        const uint8_t* const p = frame.pixels.data() + i;
        if (step < 3) {
            planes[0].push_back(step == 2 ? p[0] | p[1] << 8 : p[0]);
            continue;
        }
        const int u = p[0] - p[1], v = p[2] - p[1];
        planes[0].push_back(p[1] + ((u + v) >> 2));
        planes[1].push_back(u);
        planes[2].push_back(v);
    }
    return planes;
}

/// One component, transformed over the first levels and left at every 2^reduce-th place.
std::vector<int32_t> coarserByHand(std::vector<int32_t> plane, int width, int height, int reduce) {
    const auto stride = static_cast<size_t>(width);
    for (int level = 0; level < reduce; ++level) {
        const size_t step = size_t{1} << level;
        for (size_t y = 0; y < static_cast<size_t>(height); y += step)
            CFilter5_3<int32_t>::lift(&plane[y * stride], latticeSide(width, level), static_cast<int>(step));
        for (size_t x = 0; x < stride; x += step)
            CFilter5_3<int32_t>::lift(&plane[x], latticeSide(height, level),
                                      static_cast<int64_t>(step * stride));
    }
    std::vector<int32_t> left;
    for (size_t y = 0; y < static_cast<size_t>(height); y += size_t{1} << reduce)
        for (size_t x = 0; x < stride; x += size_t{1} << reduce)
            left.push_back(plane[y * stride + x]);
    return left;
}

/// The picture of the coarser levels.
Bytes reducedByHand(const TestFrame& frame, int reduce) {
    std::vector<std::vector<int32_t>> planes = componentsOf(frame);
    for (std::vector<int32_t>& plane : planes)
        plane = coarserByHand(std::move(plane), frame.width, frame.height, reduce);
    Bytes picture;
    for (size_t i = 0; i < planes[0].size(); ++i) {
        if (frame.bytesPerPixel == 2) {
            const int sample = std::clamp(planes[0][i], 0, 65535);
            picture.insert(picture.end(), {static_cast<uint8_t>(sample), static_cast<uint8_t>(sample >> 8)});
            continue;
        }
        const bool isGrey = planes.size() == 1;
        const int green = isGrey ? planes[0][i] : planes[0][i] - ((planes[1][i] + planes[2][i]) >> 2);
        const int values[] = {isGrey ? green : planes[1][i] + green, green,
                              isGrey ? 0 : planes[2][i] + green};
        for (size_t c = 0; c < planes.size(); ++c)
            picture.push_back(static_cast<uint8_t>(std::clamp(values[c], 0, 255)));
    }
    return picture;
}

class EveryDecoder : public testing::TestWithParam<std::string> {
protected:
    static DecodedFrame decode(std::span<const uint8_t> payload) {
        return dvq::kelt4::decode(payload, {.kernel = &findKernel(GetParam())});
    }
    /// Decodes a payload in a block of exactly its size, so that reading beyond it shows.
    static DecodedFrame decodeExactly(const Bytes& payload, size_t size) {
        const Bytes block(payload.begin(), payload.begin() + static_cast<long>(size));
        return decode(block);
    }
    static void expectExact(const TestFrame& frame, const Bytes& payload) {
        const DecodedFrame decoded = decode(payload);
        ASSERT_EQ(decoded.info.status, DecodeStatus::kComplete) << frame.width << "x" << frame.height;
        ASSERT_EQ(decoded.pixels, frame.pixels) << frame.width << "x" << frame.height;
    }
};

/// The decoder trusts length fields until the codes contradict them; inspect() reads the codes for their
/// ends.
void expectReadAsInspected(const PayloadInfo& decoded, std::span<const uint8_t> payload) {
    const PayloadInfo inspected = inspect(payload);
    ASSERT_EQ(decoded.status, inspected.status);
    ASSERT_EQ(decoded.bitsRead, inspected.bitsRead);
    ASSERT_EQ(decoded.chunks.size(), inspected.chunks.size());
    for (size_t i = 0; i < decoded.chunks.size(); ++i)
        ASSERT_EQ(decoded.chunks[i].bits, inspected.chunks[i].bits) << i;
}

INSTANTIATE_TEST_SUITE_P(Kelt, EveryDecoder, testing::ValuesIn(kernelNames(true)),
                         [](const auto& parameter) { return parameter.param; });

}  // namespace

TEST_P(EveryDecoder, GivesTheFrameBack) {
    const std::pair<int, int> sizes[] = {{1, 1},   {2, 1},   {1, 90},   {15, 40},   {16, 16},   {17, 16},
                                         {31, 33}, {61, 67}, {128, 64}, {257, 256}, {1021, 509}};
    for (const auto& [width, height] : sizes) {
        for (const int bytesPerPixel : {1, 2, 3}) {
            for (const Content content : kContents) {
                const TestFrame frame = makeFrame(width, height, bytesPerPixel, content);
                expectExact(frame, encode(frame));
            }
        }
    }
    expectExact(makeFrame(2049, 2051, 2, Content::kNoise), encode(makeFrame(2049, 2051, 2, Content::kNoise)));
    // 13 planes of coefficients, and sums that 16 bits do not hold on the way to the samples.
    TestFrame peaks{16, 16, 2, {}, 15};
    for (int i = 0; i < 16 * 16; ++i) {
        const int sample = i / 16 % 2 == 0 ? (i % 2 == 0 ? 18429 : 6142) : (i % 2 == 0 ? 6143 : 2047);
        peaks.pixels.insert(peaks.pixels.end(),
                            {static_cast<uint8_t>(sample), static_cast<uint8_t>(sample >> 8)});
    }
    const Bytes coded = encode(peaks);
    EXPECT_EQ(inspect(coded).topPlane, 12);
    expectExact(peaks, coded);
    const std::vector<TestFrame> real = realFrames();
    if (real.empty()) GTEST_SKIP() << "no corpus";
    for (const TestFrame& frame : real)
        expectExact(frame, encode(frame));
}

/// A length field of 0 may stand for an empty chunk or for one that exactly fills the field's range.
TEST_P(EveryDecoder, DelimitsChunksWhoseLengthDoesNotFit) {
    for (int value = 0; value < 16 * 16 * 16; ++value) {
        const TestFrame frame{3,
                              1,
                              1,
                              {static_cast<uint8_t>(value & 15), static_cast<uint8_t>(value >> 4 & 15),
                               static_cast<uint8_t>(value >> 8)}};
        expectExact(frame, encode(frame));
    }
    for (unsigned seed = 0; seed < 300; ++seed) {
        const TestFrame frame = makeFrame(1 + static_cast<int>(seed % 3), 2, 3, Content::kTwoBits, seed);
        expectExact(frame, encode(frame));
    }
    // 63 coefficients of one plane around a zero take 128 bits; the field has 7.
    TestFrame frame{8, 8, 1, Bytes(64, 5)};
    frame.pixels[20] = 0;
    const Bytes payload = encode(frame);
    const PayloadInfo info = inspect(payload);
    EXPECT_EQ(info.chunks[0].lengthField, 0U);
    EXPECT_EQ(info.chunks[0].bits, 128U);
    expectExact(frame, payload);
}

TEST_P(EveryDecoder, PutsUnknownBitsInTheMiddle) {
    // A 4 in plane 2 is 4 to 7, then, with its next bit, 4 or 5.
    const Bytes two = encode({2, 1, 1, {0, 4}});
    EXPECT_EQ(decodeExactly(two, 16 + 4).pixels, (Bytes{0, 6}));
    EXPECT_EQ(decodeExactly(two, 16 + 8).pixels, (Bytes{0, 5}));
    EXPECT_EQ(decode(two).pixels, (Bytes{0, 4}));
    // A 2 in plane 1 is 2 or 3, whatever is missing of the 4.
    EXPECT_EQ(decodeExactly(encode({2, 1, 1, {4, 2}}), 16 + 7).pixels, (Bytes{6, 3}));
    // Nine times 4: the tenth stream byte ends with the first bit of the refinement of plane 1.
    const Bytes nine = encode({9, 1, 1, Bytes(9, 4)});
    EXPECT_EQ(decodeExactly(nine, 16 + 10).pixels, (Bytes{5, 6, 6, 6, 6, 6, 6, 6, 6}));
    // Of a significance chunk that is cut off, what is there counts: plane 2 has bits 27 to 45, two for each.
    EXPECT_EQ(decodeExactly(nine, 16 + 4).pixels, (Bytes{6, 6, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_P(EveryDecoder, EveryPrefixIsAPicture) {
    for (const int bytesPerPixel : {1, 2, 3}) {
        const TestFrame frame = makeFrame(35, 41, bytesPerPixel, Content::kSmooth);
        const Bytes payload = encode(frame);
        for (size_t size = 0; size < payload.size(); ++size) {
            const DecodedFrame cut = decodeExactly(payload, size);
            if (size < CKeltHeader::kSize) {
                ASSERT_EQ(cut.info.status, DecodeStatus::kNotAPayload);
                continue;
            }
            // A byte that ends within the end mark's zeros misses nothing.
            ASSERT_TRUE(cut.info.status == DecodeStatus::kTruncated || size + 2 >= payload.size()) << size;
            ASSERT_EQ(cut.pixels.size(), frame.pixels.size());
            ASSERT_LE(cut.info.bitsRead, cut.info.bitsPresent);
            expectReadAsInspected(cut.info, {payload.data(), size});
        }
    }
    const TestFrame frame = makeFrame(200, 150, 1, Content::kSmooth);
    const Bytes payload = encode(frame);
    int last = 256;
    for (const size_t part : {16, 8, 4, 2, 1}) {
        const int error = worstError(decodeExactly(payload, payload.size() / part).pixels, frame.pixels);
        EXPECT_LT(error, last) << part;
        last = error;
    }
    EXPECT_EQ(last, 0);
}

/// Every decoder makes the same of them.
TEST_P(EveryDecoder, ReducedPicturesAreThoseOfTheCoarserLevels) {
    const Kernel* const kernel = &findKernel(GetParam());
    const auto reduced = [&](std::span<const uint8_t> payload, int reduce) {
        return dvq::kelt4::decode(payload, {.reduce = reduce, .kernel = kernel});
    };
    const std::pair<int, int> sizes[] = {{15, 40}, {16, 16}, {33, 31}, {130, 67}, {257, 256}};
    for (const auto& [width, height] : sizes) {
        for (const int bytesPerPixel : {1, 2, 3}) {
            const TestFrame frame = makeFrame(width, height, bytesPerPixel, Content::kSmooth);
            const Bytes payload = encode(frame);
            const int levels = levelsFor(width, height);
            for (int r = 0; r <= levels + 1; ++r) {
                const DecodedFrame picture = reduced(payload, r);
                ASSERT_EQ(picture.info.status, DecodeStatus::kComplete) << width << "x" << height << " " << r;
                ASSERT_EQ(picture.reduce, std::min(r, levels));
                ASSERT_EQ(picture.width, latticeSide(width, picture.reduce));
                ASSERT_EQ(picture.pixels, reducedByHand(frame, picture.reduce))
                    << width << "x" << height << " " << r;
            }
            // Of a prefix, chunk by chunk, the classes that take part say the same as in the whole picture.
            for (size_t size = CKeltHeader::kSize; size < payload.size(); size += 1 + size / 16) {
                const Bytes prefix(payload.begin(), payload.begin() + static_cast<ptrdiff_t>(size));
                const DecodedFrame picture = reduced(prefix, 1), whole = reduced(prefix, 0);
                ASSERT_TRUE(hasPicture(picture.info.status)) << size;
                ASSERT_LE(picture.info.bitsRead, whole.info.bitsRead);
                ASSERT_TRUE(picture.info.bitsRead == whole.info.bitsRead ||
                            picture.info.status == DecodeStatus::kComplete)
                    << size;
            }
        }
    }
}

TEST_P(EveryDecoder, SurvivesHostilePayloads) {
    for (const int bytesPerPixel : {1, 2, 3}) {
        const TestFrame frame = makeFrame(21, 18, bytesPerPixel, Content::kNoise);
        const Bytes payload = encode(frame);
        const auto check = [&](const Bytes& hostile) {
            const DecodedFrame decoded = decode(hostile);
            const CKeltHeader& header = decoded.info.header;
            const int size = header.width() * header.height() * header.bytesPerPixel();
            ASSERT_EQ(decoded.pixels.size(),
                      hasPicture(decoded.info.status) ? static_cast<size_t>(size) : 0U);
            const DecodedFrame portable = dvq::kelt4::decode(hostile, {.kernel = &findKernel("portable")});
            ASSERT_EQ(decoded.info.status, portable.info.status);
            ASSERT_EQ(decoded.pixels, portable.pixels);
            if (hasPicture(decoded.info.status)) expectReadAsInspected(decoded.info, hostile);
            const DecodedFrame reduced = dvq::kelt4::decode(hostile, {.reduce = 1});
            ASSERT_EQ(hasPicture(reduced.info.status), hasPicture(decoded.info.status));
            ASSERT_EQ(reduced.pixels.size(),
                      static_cast<size_t>(reduced.width * reduced.height * header.bytesPerPixel() *
                                          hasPicture(reduced.info.status)));
        };
        for (size_t bit = 0; bit < 8 * std::min<size_t>(payload.size(), 200); ++bit) {
            Bytes hostile = payload;
            hostile[bit / 8] = static_cast<uint8_t>(hostile[bit / 8] ^ 1 << bit % 8);
            check(hostile);
        }
        for (size_t field = 4; field < 18; ++field) {
            for (const int value : {0, 1, 2, 3, 4, 15, 16, 31, 32, 127, 128, 255}) {
                Bytes hostile = payload;
                hostile[field] = static_cast<uint8_t>(value);
                check(hostile);
            }
        }
        std::mt19937 random(7);
        for (int round = 0; round < 300; ++round) {
            Bytes hostile = payload;
            for (size_t i = 18; i < hostile.size(); ++i) {
                if (round % 3 == 0 || random() % 16 == 0)
                    hostile[i] = static_cast<uint8_t>(random() >> round % 5);
            }
            if (round % 4 == 0) hostile.resize(17 + random() % (payload.size() - 17));
            check(hostile);
        }
        for (const int filler : {0, 0xFF, 0x55}) {
            Bytes hostile(payload.begin(), payload.begin() + 18);
            hostile.resize(5000, static_cast<uint8_t>(filler));
            check(hostile);
        }
    }
}

TEST(KeltDecoder, RefusesWithoutAllocating) {
    Bytes payload = encode({2, 1, 1, {0, 4}});
    EXPECT_EQ(decode(payload, {.maxSamples = 1}).info.status, DecodeStatus::kTooLarge);
    EXPECT_EQ(decode(payload, {.maxSamples = 2}).info.status, DecodeStatus::kComplete);
    for (size_t i = 6; i < 10; ++i)
        payload[i] = 0xFF;
    EXPECT_EQ(decode(payload).info.status, DecodeStatus::kTooLarge);
    payload[4] = 4;
    EXPECT_EQ(decode(payload).info.status, DecodeStatus::kUnsupported);
    payload[3] = '0';
    EXPECT_EQ(decode(payload).info.status, DecodeStatus::kNotAPayload);
    EXPECT_TRUE(decode(payload).pixels.empty());
}

TEST(KeltDecoder, ListsTheChunks) {
    const PayloadInfo info = inspect(encode({2, 1, 1, {0, 5}}));
    EXPECT_EQ(info.status, DecodeStatus::kComplete);
    EXPECT_EQ(info.topPlane, 2);
    EXPECT_EQ(info.levels, 0);
    EXPECT_EQ(info.bitsRead, 16U + 13 + 9 + 9 + 10 + 10 + 11);
    std::string chunks;
    for (const ChunkInfo& chunk : info.chunks) {
        EXPECT_EQ(chunk.component, 0);
        EXPECT_EQ(chunk.levelClass, 0);
        chunks += (chunk.refinement ? "refinement " : "significance ") + std::to_string(chunk.plane) + ": " +
                  std::to_string(chunk.bits) + " bits at " + std::to_string(chunk.offset) + "\n";
    }
    EXPECT_EQ(chunks,
              "significance 2: 4 bits at 25\n"
              "significance 1: 0 bits at 38\n"
              "significance 0: 0 bits at 47\n"
              "refinement 1: 1 bits at 56\n"
              "refinement 0: 1 bits at 66\n");
}
