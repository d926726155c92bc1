// One conversion of each transfer syntax that is read: from the file through the checks and the decoder to
// the viewer's files and the saved copy. scripts/valgrind runs these, so that they stay small.
#include <dcmtk/dcmjpls/djrparam.h>

#include <cstdlib>

#include "imgproc/objectcheck.h"
#include "tests/shared/codestreams.h"
#include "tests/vintakd/viewer/conversion.h"
#include "vintakd/service/objectloader.h"
#include "vintakd/service/objectsaver.h"

namespace {

constexpr int kRows = 24, kColumns = 40, kFrames = 2;

struct Syntax {
    const char* name;
    E_TransferSyntax syntax;
    Uint16 bits;    ///< stored, in 8 or 16 allocated
    int tolerance;  ///< how far a decoded sample may lie from its value
};

const Syntax syntaxes[] = {
    {"ImplicitLittleEndian", EXS_LittleEndianImplicit, 12, 0},
    {"ExplicitLittleEndian", EXS_LittleEndianExplicit, 12, 0},
    {"ExplicitBigEndian", EXS_BigEndianExplicit, 12, 0},
    {"Deflated", EXS_DeflatedLittleEndianExplicit, 12, 0},
    {"Rle", EXS_RLELossless, 12, 0},
    {"JpegBaseline", EXS_JPEGProcess1, 8, 8},
    {"JpegExtended", EXS_JPEGProcess2_4, 12, 60},
    {"JpegLossless", EXS_JPEGProcess14, 12, 0},
    {"JpegLosslessFirstOrder", EXS_JPEGProcess14SV1, 12, 0},
    {"JpegLs", EXS_JPEGLSLossless, 12, 0},
    {"JpegLsNearLossless", EXS_JPEGLSLossy, 12, 2},
    {"Jpeg2000Lossless", EXS_JPEG2000LosslessOnly, 12, 0},
    {"Jpeg2000", EXS_JPEG2000, 12, 60},
};

class TransferSyntaxes : public ConversionTest, public testing::WithParamInterface<Syntax> {
protected:
    /// A soft ramp that starts at 0 and uses most of the stored bits.
    static int sample(int frame, int y, int x) {
        return (4 * x + 3 * y) * (frame + 2) / 3 << (GetParam().bits - 8);
    }

    static std::unique_ptr<DcmRepresentationParameter> parameter(DcmDataset& dataset) {
        const E_TransferSyntax syntax = GetParam().syntax;
        if (syntax == EXS_JPEGLSLossy) return std::make_unique<DJLSRepresentationParameter>(2, OFFalse);
        if (syntax == EXS_JPEG2000)
            return std::make_unique<D2RepresentationParameter>(0.3, 0, false, "", true);
        return std::unique_ptr<DcmRepresentationParameter>(
            CodecRegistry::getRepresentationParameter(dataset, syntax));
    }

    static std::string makeFile(TestObject& object) {
        const Uint16 bits = GetParam().bits;
        const Uint16 allocated = bits > 8 ? 16 : 8;
        object.describe(
            {kRows, kColumns, allocated, bits, static_cast<Uint16>(bits - 1), 0, 1, "MONOCHROME2", kFrames});
        Bytes bytes;
        Words words;
        for (int i = 0; i < kFrames * kRows * kColumns; ++i) {
            const int value = sample(i / (kRows * kColumns), i / kColumns % kRows, i % kColumns);
            bytes.push_back(static_cast<uint8_t>(value));
            words.push_back(static_cast<uint16_t>(value));
        }
        allocated == 8 ? object.pixels(bytes) : object.pixels(words);
        const auto how = parameter(object.dataset());
        EXPECT_TRUE(object.dataset().chooseRepresentation(GetParam().syntax, how.get()).good());
        return object.save(GetParam().syntax);
    }

    Encoders m_encoders;
};

TEST_P(TransferSyntaxes, AreConverted) {
    TestObject object;
    const std::string path = makeFile(object);
    DcmFileFormat file;
    loadObject(file, path, 256, ObjectValues::onDemand);
    ASSERT_EQ(file.getDataset()->getOriginalXfer(), GetParam().syntax);
    ASSERT_EQ(checkObject(*file.getDataset()), std::nullopt);
    const Outcome outcome = convert(*file.getDataset(), {0x03});
    ASSERT_EQ(outcome.result, 0) << outcome.cause;
    EXPECT_EQ(outcome.framesWritten, kFrames);
    for (int frame = 0; frame < kFrames; ++frame) {
        const std::string& raw = outcome.files.at("c/x_" + std::to_string(frame + 1) + ".raw");
        const int width = GetParam().bits > 8 ? 2 : 1;
        ASSERT_EQ(raw.size(), size_t{kRows} * kColumns * width);
        int worst = 0;
        for (int i = 0; i < kRows * kColumns; ++i) {
            int value = static_cast<uint8_t>(raw[i * width]);
            if (width == 2) value |= static_cast<uint8_t>(raw[i * width + 1]) << 8;
            worst = std::max(worst, std::abs(value - sample(frame, i / kColumns, i % kColumns)));
        }
        EXPECT_LE(worst, GetParam().tolerance) << "frame " << frame;
    }
    OutputQuota quota;
    saveObject(file, (m_folder / "copy.pdcm"), quota);
    DcmFileFormat copy;
    EXPECT_TRUE(copy.loadFile((m_folder / "copy.pdcm").c_str()).good());
    EXPECT_FALSE(copy.getDataset()->tagExists(DCM_PixelData));
}

INSTANTIATE_TEST_SUITE_P(Each, TransferSyntaxes, testing::ValuesIn(syntaxes),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
