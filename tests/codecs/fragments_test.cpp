#include <openjpeg.h>

#include "codecs/codecregistry.h"
#include "codecs/j2kopenjpeg.h"
#include "tests/shared/codestreams.h"

namespace {

/// Two frames and their codestreams.
class J2kFragments : public testing::Test {
protected:
    void SetUp() override {
        m_image.fill();
        m_streams = codestreamsOf(m_image);
        m_dataset = m_image.describe();
    }

    static Bytes part(const Bytes& bytes, size_t from, size_t to) {
        return Bytes(bytes.begin() + static_cast<ptrdiff_t>(from),
                     bytes.begin() + static_cast<ptrdiff_t>(to));
    }
    /// An offset table that has frame 2 begin behind two fragments of frame 1, the first of 100 bytes.
    Bytes offsetTable() const {
        const size_t second = 8 + 100 + 8 + (m_streams[0].size() - 100 + 1) / 2 * 2;  // the last is padded
        return {0, 0, 0, 0, static_cast<uint8_t>(second), static_cast<uint8_t>(second >> 8), 0, 0};
    }
    /// Frame 1 in two fragments, frame 2 in three.
    std::vector<Bytes> split(Bytes table) const {
        const Bytes &a = m_streams[0], &b = m_streams[1];
        return {std::move(table), part(a, 0, 100), part(a, 100, a.size()),
                part(b, 0, 50),   part(b, 50, 52), part(b, 52, b.size())};
    }
    void expectBothFrames() {
        for (const uint32_t frame : {1U, 0U}) {
            const Decoded decoded = decodeFrame(*m_dataset, frame, m_image.frameBytes());
            ASSERT_TRUE(decoded.condition.good()) << decoded.condition.text();
            EXPECT_EQ(decoded.pixels, m_image.frame(frame));
        }
        // In order, each frame beginning where the one before ended.
        const Decoded first = decodeFrame(*m_dataset, 0, m_image.frameBytes());
        const Decoded second = decodeFrame(*m_dataset, 1, m_image.frameBytes(), first.nextFragment);
        EXPECT_EQ(second.pixels, m_image.frame(1));
    }

    CodecRegistry m_registry;
    TestImage m_image{{.rows = 24, .columns = 32, .allocated = 16, .stored = 12, .frames = 2}, {}};
    std::vector<Bytes> m_streams;
    std::unique_ptr<DcmDataset> m_dataset;
};

TEST_F(J2kFragments, FollowTheOffsetTable) {
    putFragments(*m_dataset, split(offsetTable()));
    expectBothFrames();
}

TEST_F(J2kFragments, OfTwoBytesBeginAFrameWhenTheTableSaysSo) {
    const Bytes &a = m_streams[0], &b = m_streams[1];
    putFragments(*m_dataset, {offsetTable(), part(a, 0, 100), part(a, 100, a.size()), part(b, 0, 2),
                              part(b, 2, b.size())});
    for (const uint32_t frame : {0U, 1U})
        EXPECT_EQ(decodeFrame(*m_dataset, frame, m_image.frameBytes()).pixels, m_image.frame(frame));
}

TEST_F(J2kFragments, WithoutAnOffsetTableBeginWithACodestream) {
    putFragments(*m_dataset, split({}));
    expectBothFrames();
    putFragments(*m_dataset, split({0, 0, 0, 0, 7, 0, 0, 0}));  // a table that points nowhere
    expectBothFrames();
}

TEST_F(J2kFragments, OfASingleFrameBelongTogether) {
    m_image.frames = 1;
    const auto dataset = m_image.describe();
    const Bytes& stream = m_streams[0];
    putFragments(*dataset, {{}, part(stream, 0, 2), part(stream, 2, 90), part(stream, 90, stream.size())});
    EXPECT_EQ(decodeFrame(*dataset, 0, m_image.frameBytes()).pixels, m_image.frame(0));
}

TEST_F(J2kFragments, MayHoldJp2Files) {
    std::vector<Bytes> fragments{{}};
    for (const Bytes& stream : m_streams) {
        Bytes file = {0, 0, 0, 12, 'j', 'P', ' ', ' ', 13, 10, 0x87, 10, 0, 0, 0, 9, 'f', 't', 'y', 'p', 1};
        file.insert(file.end(), {0, 0, 0, 0, 'j', 'p', '2', 'c'});
        file.insert(file.end(), stream.begin(), stream.end());
        fragments.push_back(file);
    }
    putFragments(*m_dataset, fragments);
    expectBothFrames();
}

TEST_F(J2kFragments, ThatAreMissingAreNamed) {
    m_image.frames = 3;
    const auto dataset = m_image.describe();
    putFragments(*dataset, {{}, m_streams[0], m_streams[1]});
    EXPECT_EQ(decodeFrame(*dataset, 1, m_image.frameBytes()).pixels, m_image.frame(1));
    const Decoded third = decodeFrame(*dataset, 2, m_image.frameBytes());
    EXPECT_TRUE(third.condition.bad());
    EXPECT_STREQ(third.condition.text(), "JPEG 2000: frame 3 of 3 is not among the 2 fragments");
    for (const std::vector<Bytes>& none :
         {std::vector<Bytes>{}, std::vector<Bytes>{{}}, std::vector<Bytes>{{}, {}}}) {
        putFragments(*dataset, none);
        EXPECT_TRUE(decodeFrame(*dataset, 0, m_image.frameBytes()).condition.bad());
        EXPECT_TRUE(dataset->chooseRepresentation(EXS_LittleEndianExplicit, nullptr).bad());
    }
}

TEST_F(J2kFragments, SubsampledComponentsComeOutWhole) {
    constexpr uint32_t kWidth = 7, kHeight = 4, kHalf = 4;
    opj_image_cmptparm_t parameters[3] = {};
    for (int i = 0; i < 3; ++i) {
        parameters[i].dx = i == 0 ? 1 : 2;
        parameters[i].dy = 1;
        parameters[i].w = i == 0 ? kWidth : kHalf;
        parameters[i].h = kHeight;
        parameters[i].prec = 8;
    }
    const J2kImage image(opj_image_create(3, parameters, OPJ_CLRSPC_SYCC));
    image->x1 = kWidth;
    image->y1 = kHeight;
    Bytes expected(kWidth * kHeight * 3);
    for (uint32_t y = 0; y < kHeight; ++y) {
        for (uint32_t x = 0; x < kWidth; ++x) {
            const uint32_t at[3] = {y * kWidth + x, y * kHalf + x / 2, y * kHalf + x / 2};
            for (uint32_t c = 0; c < 3; ++c) {
                const uint32_t value = 20 + c * 60 + at[c] * 2;
                image->comps[c].data[at[c]] = static_cast<int>(value);
                expected[(y * kWidth + x) * 3 + c] = static_cast<uint8_t>(value);
            }
        }
    }
    Bytes stream;
    ASSERT_TRUE(encodeJ2k(*image, {}, stream).good());
    DcmDataset dataset;
    describe(dataset, {.rows = kHeight, .columns = kWidth, .samples = 3, .photometric = "YBR_FULL_422"});
    putFragments(dataset, {{}, stream});
    const Decoded decoded = decodeFrame(dataset, 0, expected.size());
    ASSERT_TRUE(decoded.condition.good()) << decoded.condition.text();
    EXPECT_EQ(decoded.pixels, expected);
    EXPECT_EQ(decoded.colorModel, "YBR_FULL");
}

}  // namespace
