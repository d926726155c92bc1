#include <algorithm>

#include "codecs/codecregistry.h"
#include "tests/shared/codestreams.h"

namespace {

class J2kHostile : public testing::Test {
protected:
    void SetUp() override {
        m_image.fill();
        m_stream = codestreamsOf(m_image).at(0);
        while (m_stream.back() == 0)
            m_stream.pop_back();
        m_dataset = m_image.describe();
    }
    Decoded decode(const Bytes& stream) {
        putFragments(*m_dataset, {{}, stream});
        return decodeFrame(*m_dataset, 0, m_image.frameBytes());
    }
    static void put32(Bytes& bytes, size_t at, uint32_t value) {
        for (int i = 0; i < 4; ++i)
            bytes[at + static_cast<size_t>(i)] = static_cast<uint8_t>(value >> (24 - 8 * i));
    }

    CodecRegistry m_registry;
    TestImage m_image{{.rows = 16, .columns = 16}, {}};
    Bytes m_stream;
    std::unique_ptr<DcmDataset> m_dataset;
};

TEST_F(J2kHostile, ACutCodestreamIsAnErrorAtEveryByte) {
    ASSERT_EQ(decode(m_stream).pixels, m_image.pixels);
    // The last two bytes are the end marker, which says nothing that is not known.
    for (size_t length = 0; length < m_stream.size() - 2; ++length) {
        const Bytes cut(m_stream.begin(), m_stream.begin() + static_cast<ptrdiff_t>(length));
        EXPECT_TRUE(decode(cut).condition.bad()) << length << " of " << m_stream.size() << " bytes";
    }
    // The same with the length of the only tile-part left open, as encoders that stream do: the decoder has
    // to notice.
    const uint8_t start[] = {0xFF, 0x90, 0, 10};
    const auto tilePart = std::search(m_stream.begin(), m_stream.end(), std::begin(start), std::end(start));
    const auto at = static_cast<size_t>(tilePart - m_stream.begin());
    put32(m_stream, at + 6, 0);
    ASSERT_EQ(decode(m_stream).pixels, m_image.pixels);
    for (size_t length = at; length < m_stream.size() - 1; ++length) {
        const Bytes cut(m_stream.begin(), m_stream.begin() + static_cast<ptrdiff_t>(length));
        EXPECT_TRUE(decode(cut).condition.bad()) << length << " of " << m_stream.size() << " bytes";
    }
}

TEST_F(J2kHostile, AHeaderThatDisagreesIsRefusedWithItsReason) {
    const struct {
        const char* reason;
        std::function<void(Bytes&)> change;
    } changes[] = {
        {"the codestream holds 17 x 16 pixels, the object says 16 x 16", [](Bytes& s) { put32(s, 8, 17); }},
        {"the codestream holds 16 x 17 pixels, the object says 16 x 16", [](Bytes& s) { put32(s, 12, 17); }},
        {"an image of 16 x 4294967295 pixels in 268435456 tiles", [](Bytes& s) { put32(s, 12, 0xFFFFFFFF); }},
        {"the codestream is cut: 1 tiles are missing", [](Bytes& s) { put32(s, 24, 8); }},
        {"the image area is empty", [](Bytes& s) { put32(s, 16, 16); }},
        {"the tile grid does not cover the image area", [](Bytes& s) { put32(s, 24, 0); }},
        {"the codestream has 38 bits a sample, the object allocates 8", [](Bytes& s) { s[42] = 37; }},
        {"the codestream has signed samples of 7 bits, the object says unsigned samples of 8",
         [](Bytes& s) { s[42] = 0x86; }},
        {"a component has no samples", [](Bytes& s) { s[43] = 0; }},
        {"the image size segment does not hold its 3 components", [](Bytes& s) { s[41] = 3; }},
        {"the image size segment does not hold its 65535 components", [](Bytes& s) { s[40] = s[41] = 255; }},
        {"no codestream", [](Bytes& s) { s[0] = 0; }},
    };
    for (const auto& [reason, change] : changes) {
        Bytes stream = m_stream;
        change(stream);
        const Decoded decoded = decode(stream);
        EXPECT_TRUE(decoded.condition.bad());
        EXPECT_EQ(decoded.condition.text(), std::string("JPEG 2000: ") + reason);
    }
}

TEST_F(J2kHostile, TilesAndPrecinctsCannotBeManyForFewPixels) {
    // The stream of an image of this side, in tiles of another.
    const auto resized = [this](Uint16 side, Uint16 tile) {
        m_image.rows = m_image.columns = side;
        m_dataset = m_image.describe();
        Bytes stream = m_stream;
        for (const size_t at : {8, 12})
            put32(stream, at, side);
        for (const size_t at : {24, 28})
            put32(stream, at, tile);
        return stream;
    };
    EXPECT_STREQ(decode(resized(200, 1)).condition.text(),
                 "JPEG 2000: an image of 200 x 200 pixels in 40000 tiles");
    Bytes stream = resized(2048, 2048);
    const size_t style = 47;  // the coding style segment follows the size of one component
    ASSERT_EQ(stream[style - 2] << 8 | stream[style - 1], 0xFF52);
    const unsigned levels = stream[style + 7];
    stream[style + 1] = static_cast<uint8_t>(stream[style + 1] + levels + 1);
    stream[style + 2] |= 1;  // own precincts
    stream.insert(stream.begin() + style + 12, levels + 1, 0);
    EXPECT_TRUE(contains(std::string(decode(stream).condition.text()), "precincts"));

    std::fill_n(stream.begin() + style + 12, levels + 1, 0x44);  // fewer, but each in very many layers
    stream[style + 4] = 0x10;
    EXPECT_TRUE(contains(std::string(decode(stream).condition.text()), " packets, in 4097 layers"))
        << decode(stream).condition.text();
}

TEST_F(J2kHostile, ImpossibleObjectsAreRefusedBeforeMemoryIsTaken) {
    m_image.rows = m_image.columns = 65535;
    m_image.frames = 2000000000;
    m_dataset = m_image.describe();
    putFragments(*m_dataset, {{}, m_stream});
    EXPECT_TRUE(m_dataset->chooseRepresentation(EXS_LittleEndianExplicit, nullptr).bad());
    m_image.rows = m_image.columns = 16;
    m_dataset = m_image.describe();
    putFragments(*m_dataset, {{}, m_stream});
    EXPECT_TRUE(m_dataset->chooseRepresentation(EXS_LittleEndianExplicit, nullptr).bad());
}

}  // namespace
