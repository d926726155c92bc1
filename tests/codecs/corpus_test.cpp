#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcfilefo.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "codecs/codecregistry.h"
#include "tests/codecs/codestreams.h"

namespace {

std::string corpus() {
    const char* named = std::getenv("VINTAKD_CORPUS");
    return named ? named : VINTAKD_CORPUS_DIR;
}

/** All frames of a real object, decoded one by one. */
Bytes framesOf(const std::string& name) {
    DcmFileFormat file;
    const OFCondition loaded =
        file.loadFile((corpus() + "/" + name).c_str(), EXS_Unknown, EGL_noChange, 1024);
    EXPECT_TRUE(loaded.good()) << name << ": " << loaded.text();
    DcmDataset& dataset = *file.getDataset();
    Uint32 size = 0;
    EXPECT_TRUE(pixelDataOf(dataset).getUncompressedFrameSize(&dataset, size).good());
    const Decoded decoded = decodeFrame(dataset, 0, size);
    EXPECT_TRUE(decoded.condition.good()) << name << ": " << decoded.condition.text();
    return decoded.pixels;
}

class RealObjects : public testing::TestWithParam<const char*> {
protected:
    CodecRegistry m_registry;
};

TEST_P(RealObjects, AreTheSameLosslessAndUncompressed) {
    const std::string image = std::string("WG04_") + GetParam();
    if (!std::filesystem::exists(corpus() + "/" + image + "_J2KR.dcm")) GTEST_SKIP() << "no corpus";
    const Bytes expected = framesOf(image + "_UNC.dcm");
    EXPECT_TRUE(framesOf(image + "_J2KR.dcm") == expected);
    const std::string lossless = image + "_JLSL.dcm";
    if (std::filesystem::exists(corpus() + "/" + lossless)) {
        EXPECT_TRUE(framesOf(lossless) == expected);
    }
}

INSTANTIATE_TEST_SUITE_P(Wg04, RealObjects, testing::Values("CT1", "MR4", "RG3", "US1", "VL1", "XA1"));

}  // namespace
