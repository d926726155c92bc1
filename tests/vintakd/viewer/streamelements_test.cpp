#include <cstdio>

#include "kelt4/decoder.h"
#include "tests/vintakd/viewer/conversion.h"
#include "vintakd/viewer/streamelements.h"
#include "vintakd/viewer/vintakrawimage.h"

namespace {

namespace kelt = dvq::kelt4;

constexpr unsigned kAllFiles = 0x03;
constexpr size_t kHeaderSize = 24;

Bytes slice(const Bytes& bytes, size_t from, size_t to) {
    return Bytes(bytes.begin() + static_cast<ptrdiff_t>(from), bytes.begin() + static_cast<ptrdiff_t>(to));
}

/// The elements of one frame hold one stream, cut where they should be, which is the exact frame.
void checkElements(const Bytes& p, const Bytes& t, const Bytes& f, const Bytes& raw, size_t cut) {
    ASSERT_GE(t.size(), kHeaderSize);
    EXPECT_EQ(slice(p, 0, kHeaderSize), slice(t, 0, kHeaderSize));
    Bytes stream = slice(t, kHeaderSize, t.size());
    stream.insert(stream.end(), f.begin(), f.end());
    EXPECT_EQ(t.size() - kHeaderSize, std::min(cut, stream.size()));
    EXPECT_EQ(slice(p, kHeaderSize, p.size()), slice(stream, 0, std::min<size_t>(stream.size(), 4096)));
    const kelt::DecodedFrame decoded = kelt::decode(stream);
    EXPECT_EQ(decoded.info.status, kelt::DecodeStatus::kComplete);
    EXPECT_EQ(decoded.pixels, raw);
}

class StreamElementsTest : public FrameFilesTest {};

TEST_F(StreamElementsTest, HoldOneStreamThatIsTheFrame) {
    struct Case {
        int columns, rows, bytesPerPixel, bits;
        size_t cut;
    };
    // Up to 65536 pixels the cut is 1024 bytes a used bit.
    for (const auto& [columns, rows, bytesPerPixel, bits, cut] :
         {Case{512, 512, 1, 8, 24028}, Case{200, 150, 2, 12, 12288}, Case{131, 77, 3, 8, 8192},
          Case{15, 4000, 2, 11, 11264}, Case{9, 7, 1, 8, 8192}}) {
        const Bytes samples = softPicture(columns, rows, bytesPerPixel, bits);
        makeObject(columns, rows, bytesPerPixel, samples);
        ASSERT_TRUE(convert(kAllFiles));
        EXPECT_EQ(file(".raw"), samples);
        SCOPED_TRACE(columns);
        checkElements(file(".p.qi4"), file(".t.qi4"), file(".f.qi4"), samples, cut);
    }
    EXPECT_EQ(file(".f.qi4").size(), 0u) << "a short stream leaves an empty rest";
}

TEST_F(StreamElementsTest, HeaderBytes) {
    Bytes samples = softPicture(20, 20, 2, 12);
    makeObject(20, 20, 2, samples);
    ASSERT_TRUE(convert(kAllFiles));
    // -1024, 2, 300 and 40.5 in single precision.
    EXPECT_EQ(slice(file(".t.qi4"), 0, 30),
              (Bytes{'Q',  'X', 'I', 'D',  1,    0, 0x18, 0,    0,    0,   0x80, 0xC4, 0,   0, 0,
                     0x40, 0,   0,   0x96, 0x43, 0, 0,    0x22, 0x42, 'K', 'T',  '4',  '1', 2, 12}));
}

TEST_F(StreamElementsTest, EachPartMayBeMissing) {
    const Bytes samples = softPicture(64, 64, 1, 8);
    makeObject(64, 64, 1, samples);
    ASSERT_TRUE(convert(kAllFiles, [&](CVintakRawImage& image) {
        EXPECT_TRUE(image.createAndWriteCompressedStreamElements(nullptr, nullptr, nullptr));
        // Without a first part the rest is the whole stream.
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> rest(std::tmpfile(), std::fclose);
        EXPECT_TRUE(image.createAndWriteCompressedStreamElements(rest.get(), nullptr, nullptr));
        Bytes stream(static_cast<size_t>(std::ftell(rest.get())));
        std::rewind(rest.get());
        ASSERT_EQ(std::fread(stream.data(), 1, stream.size(), rest.get()), stream.size());
        EXPECT_EQ(kelt::decode(stream).pixels, samples);
    }));
}

TEST(StreamCutTest, GrowsLessThanTheFrame) {
    constexpr size_t kLongStream = 1 << 30;
    EXPECT_EQ(streamCut(512, 512, 8, kLongStream), 24028u);
    EXPECT_EQ(streamCut(256, 256, 8, kLongStream), 8192u);
    EXPECT_EQ(streamCut(10, 10, 12, kLongStream), 12288u);
    EXPECT_EQ(streamCut(512, 512, 8, 24027), 24027u);
    EXPECT_EQ(streamCut(512, 512, 0, 777), 777u) << "no bits used: all of it";
    EXPECT_EQ(streamCut(512, 512, 0, 0), 0u);
    EXPECT_GT(streamCut(65535, 65535, 16, kLongStream), 12'000'000u) << "more pixels than 31 bits count";
}

}  // namespace
