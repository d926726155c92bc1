// Encapsulated documents.
#include "tests/imgproc/capturingprocess.h"

namespace {

constexpr char kCdaClass[] = "1.2.840.10008.5.1.4.1.1.104.2";
constexpr Uint16 kGroup = 0x0042;

Bytes pdf(size_t size) {
    Bytes bytes(size, 'x');
    const std::string head = "%PDF-1.4\n";
    std::copy(head.begin(), head.end(), bytes.begin());
    return bytes;
}

struct Outcome {
    int result;
    std::vector<Bytes> documents;
    bool operator==(const Outcome&) const = default;
};

Outcome convert(TestObject& object, E_TransferSyntax syntax = EXS_LittleEndianExplicit) {
    DcmDataset& dataset = object.reload(syntax);
    CapturingProcess process(dataset);
    const int result = process.process();
    EXPECT_FALSE(dataset.tagExists(DCM_EncapsulatedDocument));
    return {result, process.documents()};
}

}  // namespace

TEST(Document, APdfLosesItsPaddingOnly) {
    for (size_t size : {1001U, 1002U}) {
        for (E_TransferSyntax syntax : {EXS_LittleEndianExplicit, EXS_LittleEndianImplicit}) {
            TestObject object(UID_EncapsulatedPDFStorage);
            object.bytes(kGroup, 0x0011, EVR_OB, pdf(size));
            EXPECT_EQ(convert(object, syntax), (Outcome{0, {pdf(size)}}));
        }
    }
    TestObject words(UID_EncapsulatedPDFStorage);
    words.words(kGroup, 0x0011, EVR_OW, {0x5025, 0x0044});
    EXPECT_EQ(convert(words), (Outcome{0, {{'%', 'P', 'D'}}}));
}

TEST(Document, TheSopClassDecidesAndOnlyWithoutOneTheMimeType) {
    const struct {
        const char *sopClass, *type;
        std::vector<Bytes> documents;
    } cases[] = {{nullptr, "application/pdf", {pdf(20)}},
                 {nullptr, "text/XML", {}},
                 {nullptr, nullptr, {}},
                 {kCdaClass, "application/pdf", {}}};
    for (const auto& [sopClass, type, documents] : cases) {
        TestObject object(sopClass);
        object.bytes(kGroup, 0x0011, EVR_OB, pdf(20));
        if (type != nullptr) object.text(DCM_MIMETypeOfEncapsulatedDocument, type);
        EXPECT_EQ(convert(object), (Outcome{0, documents}));
    }
}

TEST(Document, AnEmptyOneFailsAndTheRestIsStillConverted) {
    TestObject object(UID_EncapsulatedPDFStorage);
    object.bytes(kGroup, 0x0011, EVR_OB, {});
    object.describe({.columns = 2});
    object.pixels(Bytes{3, 5});
    DcmDataset& dataset = object.reload();
    CapturingProcess process(dataset);
    EXPECT_EQ(process.process(), 1);
    EXPECT_TRUE(contains(process.failureCause(), "document"));
    ASSERT_EQ(process.frames().size(), 1U);
    EXPECT_EQ(process.frames()[0].bytes, (Bytes{0, 2}));
}

TEST(Document, OneOfUndefinedLengthIsNoDocument) {
    TestObject object(UID_EncapsulatedPDFStorage);
    auto* sequence = new DcmSequenceOfItems(DcmTag(kGroup, 0x0011, DcmVR(EVR_SQ)));
    sequence->append(new DcmItem);
    ASSERT_TRUE(object.dataset().insert(sequence, OFTrue).good());
    EXPECT_EQ(convert(object), (Outcome{1, {}}));
}
