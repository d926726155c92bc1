#include <dcmtk/dcmdata/dccodec.h>

#include <algorithm>
#include <functional>
#include <random>

#include "hsutils/transfersyntaxes.h"
#include "tests/shared/htstreams.h"

namespace {

constexpr const char* kLosslessOnly = "1.2.840.10008.1.2.4.201";
constexpr const char* kLossy = "1.2.840.10008.1.2.4.203";

/// A codestream of 64 x 48 pixels of 12 bits, beside the transfer syntax that promises it.
class HighThroughput : public testing::Test {
protected:
    void SetUp() override {
        m_image.fill();
        m_dataset = m_image.describe();
        m_stream = htStreamsOf(m_image)[0];
    }
    Decoded decode(const Bytes& stream, const char* syntax = kLosslessOnly) {
        putFragments(*m_dataset, {{}, stream});
        m_dataset->putAndInsertString(DCM_TransferSyntaxUID, syntax);
        return decodeFrame(*m_dataset, 0, m_image.frameBytes());
    }
    /// Offset of the first byte behind a marker of the main header.
    static size_t behind(const Bytes& stream, uint8_t marker) {
        const uint8_t wanted[] = {0xFF, marker};
        const auto found = std::search(stream.begin(), stream.end(), std::begin(wanted), std::end(wanted));
        return static_cast<size_t>(found - stream.begin()) + 2;
    }

    CodecRegistry m_registry;
    TestImage m_image{{.rows = 48, .columns = 64, .allocated = 16, .stored = 12}, {}};
    std::unique_ptr<DcmDataset> m_dataset;
    Bytes m_stream;
};

TEST_F(HighThroughput, StreamsThatAreNotWhatTheyPromiseAreRefusedWithTheReason) {
    constexpr uint8_t kCap = 0x50, kCod = 0x52;
    const auto dropCap = [](Bytes& s) {
        const auto cap = s.begin() + static_cast<ptrdiff_t>(behind(s, kCap)) - 2;
        s.erase(cap, cap + 10);
    };
    const auto set = [](uint8_t marker, size_t at, uint8_t value) {
        return [=](Bytes& s) { s.at(behind(s, marker) + at) = value; };
    };
    const struct {
        const char* reason;
        std::function<void(Bytes&)> change;
    } changes[] = {
        {"HT code-blocks without the capabilities segment that declares them", dropCap},
        {"a capabilities segment that the image size segment does not announce", set(0x51, 2, 0)},
        {"the capabilities segment does not hold a word for each of its 2 parts", set(kCap, 2, 0x80)},
        {"HT code-blocks without the capabilities segment that declares them", set(kCap, 3, 1)},
        {"HT code-blocks are mixed with others, which cannot be decoded", set(kCap, 6, 0xC0)},
        {"HT code-blocks are mixed with others, which cannot be decoded", set(kCod, 10, 0xC0)},
        {"the transfer syntax promises HT code-blocks, the stream has others", set(kCod, 10, 0)},
        {"the capabilities segment says that every component is reversible, one is not", set(kCod, 11, 0)},
        {"progression order 5", set(kCod, 3, 5)},
    };
    ASSERT_EQ(decode(m_stream).pixels, m_image.pixels);
    for (const auto& [reason, change] : changes) {
        Bytes stream = m_stream;
        change(stream);
        const Decoded decoded = decode(stream);
        EXPECT_TRUE(decoded.condition.bad());
        EXPECT_EQ(decoded.condition.text(), std::string("JPEG 2000: ") + reason);
    }
    const Bytes lossy = htStreamsOf(m_image, {.quantization = 0.001F})[0];
    EXPECT_TRUE(decode(lossy, kLossy).condition.good());
    EXPECT_STREQ(decode(lossy).condition.text(),
                 "JPEG 2000: the transfer syntax promises a lossless stream, the stream is irreversible");
    EXPECT_STREQ(decode(codestreamsOf(m_image)[0], kLossy).condition.text(),
                 "JPEG 2000: the transfer syntax promises HT code-blocks, the stream has others");
}

// Bytes changed anywhere, cut anywhere: an answer for each. VINTAKD_TEST_MUTANTS asks for more of them.
TEST_F(HighThroughput, MutantsAreDecodedOrRefused) {
    const char* wanted = std::getenv("VINTAKD_TEST_MUTANTS");
    const int mutants = wanted ? static_cast<int>(std::strtol(wanted, nullptr, 10)) : 200;
    std::minstd_rand random(201);
    const auto below = [&random](size_t limit) { return random() % limit; };
    for (int i = 0; i < mutants; ++i) {
        const HtCoding coding{.order = below(2) == 0 ? "LRCP" : "PCRL", .tile = below(2) == 0 ? 0U : 32U};
        Bytes stream = htStreamsOf(m_image, coding)[0];
        // Half of the changes meet the headers, which are a twentieth of the bytes.
        for (size_t changes = 1 + below(8); changes > 0; --changes)
            stream[below(below(2) == 0 ? 120 : stream.size())] = static_cast<uint8_t>(random());
        if (below(4) == 0) stream.resize(below(stream.size()));
        const Decoded decoded = decode(stream, kLossy);
        EXPECT_TRUE(decoded.condition.good() || *decoded.condition.text() != '\0') << "mutant " << i;
    }
}

TEST_F(HighThroughput, WhatIsListedAsReadableIsWhatCanBeDecoded) {
    std::vector<std::string> listed, decodable;
    for (const TransferSyntax& syntax : readableTransferSyntaxes()) {
        if (syntax.isHighThroughput()) continue;
        listed.emplace_back(syntax.uid);
        EXPECT_EQ(DcmXfer(std::string(syntax.uid).c_str()).getXferName(), syntax.name);
    }
    for (int number = 0; number < 100; ++number) {
        const DcmXfer syntax(static_cast<E_TransferSyntax>(number));
        const std::string_view uid = syntax.getXferID();
        // Neither a vendor's own, nor those of objects whose pixels lie on a server.
        if (syntax.getXfer() == EXS_Unknown || !uid.starts_with("1.2.840.10008.") || syntax.isReferenced())
            continue;
        if (!syntax.isEncapsulated() ||
            DcmCodecList::canChangeCoding(syntax.getXfer(), EXS_LittleEndianExplicit))
            decodable.emplace_back(uid);
    }
    std::sort(listed.begin(), listed.end());
    std::sort(decodable.begin(), decodable.end());
    EXPECT_EQ(std::unique(decodable.begin(), decodable.end()), decodable.end());
    EXPECT_EQ(listed, decodable);
}

}  // namespace
