#include "imgproc/objectsyntax.h"
#include "tests/shared/htstreams.h"
#include "tests/vintakd/viewer/conversion.h"
#include "vintakd/service/objectloader.h"
#include "vintakd/service/objectsaver.h"

namespace {

constexpr const char* kLosslessOnly = "1.2.840.10008.1.2.4.201";
constexpr const char* kRpcl = "1.2.840.10008.1.2.4.202";
constexpr const char* kLossy = "1.2.840.10008.1.2.4.203";

struct Case {
    const char* name;
    const char* syntax;
    ImageShape shape;
    HtCoding coding;
};

ImageShape grey(Uint16 allocated, Uint16 stored, bool isSigned = false, int frames = 1) {
    return {.rows = 43,
            .columns = 70,
            .allocated = allocated,
            .stored = stored,
            .representation = isSigned,
            .frames = frames};
}

const ImageShape kRgb{.rows = 43, .columns = 70, .samples = 3, .photometric = "RGB", .planar = 0};

const Case cases[] = {
    {"Grey8", kLosslessOnly, grey(8, 8), {.order = "LRCP"}},
    {"Grey12Frames", kLosslessOnly, grey(16, 12, false, 3), {.order = "RLCP"}},
    {"Grey16", kRpcl, grey(16, 16), {.order = "RPCL"}},
    {"Signed8", kLosslessOnly, grey(8, 8, true), {.order = "PCRL"}},
    {"Signed12Tiles", kLosslessOnly, grey(16, 12, true), {.order = "CPRL", .tile = 32}},
    {"Signed16", kLossy, grey(16, 16, true), {.order = "LRCP"}},
    {"Rgb", kLosslessOnly, kRgb, {.order = "CPRL"}},
    {"RgbTiles", kRpcl, kRgb, {.order = "RPCL", .tile = 24}},
};

class HtObjects : public ConversionTest, public testing::WithParamInterface<Case> {
protected:
    HtObjects() {
        static_cast<ImageShape&>(m_image) = GetParam().shape;
        m_image.fill();
    }
    /// What a conversion leaves: its files and the copy, read back.
    struct Result {
        Outcome outcome;
        DcmFileFormat copy;
    };
    void convertFile(const std::string& path, Result& result) {
        DcmFileFormat file;
        loadObject(file, path, 256, ObjectValues::onDemand);
        result.outcome = convert(*file.getDataset());
        ASSERT_EQ(result.outcome.result, 0) << result.outcome.cause;
        OutputQuota quota;
        saveObject(file, m_others / "copy.pdcm", quota);
        loadObject(result.copy, m_others / "copy.pdcm", 256, ObjectValues::onDemand);
    }

    CodecRegistry m_registry;
    TemporaryFolder m_others;  ///< than the results, which are compared as a whole
    TestImage m_image;
};

TEST_P(HtObjects, BecomeTheFilesOfTheirUncompressedKind) {
    TestObject plain, coded;
    plain.describe(m_image);
    plain.pixels(m_image.pixels);
    Result expected, found;
    convertFile(plain.save(EXS_LittleEndianExplicit), expected);

    ImageShape shape = m_image;
    if (shape.samples == 3) shape.photometric = "YBR_RCT";
    coded.describe(shape);
    convertFile(saveHtObject(coded, m_others / "coded.dcm", GetParam().syntax,
                             htStreamsOf(m_image, GetParam().coding)),
                found);
    EXPECT_EQ(found.outcome.files, expected.outcome.files);

    OFString uid;
    EXPECT_TRUE(found.copy.getMetaInfo()->findAndGetOFString(DCM_TransferSyntaxUID, uid).good());
    EXPECT_EQ(uid, GetParam().syntax) << "the copy keeps its transfer syntax";
    DcmDataset& copy = *found.copy.getDataset();
    EXPECT_EQ(transferSyntaxName(copy), findHighThroughput(GetParam().syntax)->name);
    const bool lossy = GetParam().syntax == kLossy;
    EXPECT_EQ(textAt(copy, DCM_LossyImageCompression), lossy ? "01" : "");
    copy.findAndDeleteElement(DCM_LossyImageCompression);
    std::ostringstream texts[2];
    copy.print(texts[0]);
    expected.copy.getDataset()->print(texts[1]);
    const auto behindSyntax = [](const std::string& text) { return text.substr(text.find("(0008")); };
    EXPECT_EQ(behindSyntax(texts[0].str()), behindSyntax(texts[1].str()));
}

INSTANTIATE_TEST_SUITE_P(Each, HtObjects, testing::ValuesIn(cases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
