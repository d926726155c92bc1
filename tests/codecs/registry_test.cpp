#include <dcmtk/dcmdata/dccodec.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmjpeg/djrplol.h>
#include <dcmtk/dcmjpeg/djrploss.h>
#include <gtest/gtest.h>

#include "codecs/codecregistry.h"

namespace {

TEST(CodecRegistry, RegistersWhileItLives) {
    const E_TransferSyntax readable[] = {EXS_RLELossless,   EXS_JPEGProcess1,         EXS_JPEGProcess2_4,
                                         EXS_JPEGProcess14, EXS_JPEGProcess14SV1,     EXS_JPEGLSLossless,
                                         EXS_JPEGLSLossy,   EXS_JPEG2000LosslessOnly, EXS_JPEG2000};
    const E_TransferSyntax writable[] = {EXS_JPEGProcess1, EXS_JPEGProcess14SV1, EXS_JPEG2000LosslessOnly,
                                         EXS_JPEG2000};
    for (int round = 0; round < 2; ++round) {
        {
            const CodecRegistry registry;
            for (const E_TransferSyntax xfer : readable)
                EXPECT_TRUE(DcmCodecList::canChangeCoding(xfer, EXS_LittleEndianExplicit)) << xfer;
            for (const E_TransferSyntax xfer : writable)
                EXPECT_TRUE(DcmCodecList::canChangeCoding(EXS_LittleEndianExplicit, xfer)) << xfer;
        }
        for (const E_TransferSyntax xfer : readable)
            EXPECT_FALSE(DcmCodecList::canChangeCoding(xfer, EXS_LittleEndianExplicit)) << xfer;
    }
}

TEST(CodecRegistry, ChoosesParametersByTransferSyntax) {
    DcmDataset dataset;
    const auto parameterFor = [&](int xfer) {
        return std::unique_ptr<DcmRepresentationParameter>(
            CodecRegistry::getRepresentationParameter(dataset, static_cast<E_TransferSyntax>(xfer)));
    };
    for (int xfer = -1; xfer <= 41; ++xfer) {
        const auto parameter = parameterFor(xfer);
        SCOPED_TRACE(xfer);
        if (xfer == EXS_JPEGProcess14 || xfer == EXS_JPEGProcess14SV1) {
            ASSERT_TRUE(parameter);
            EXPECT_TRUE(*parameter == DJ_RPLossless(6, 0));
        } else if (xfer >= 4 && xfer <= 20) {
            ASSERT_TRUE(parameter);
            EXPECT_TRUE(*parameter == DJ_RPLossy(90));
        } else if (xfer == EXS_JPEG2000LosslessOnly) {
            ASSERT_TRUE(parameter);
            EXPECT_TRUE(*parameter == D2RepresentationParameter(1.0, 0, true, "", true));
        } else if (xfer == EXS_JPEG2000) {
            ASSERT_TRUE(parameter);
            EXPECT_TRUE(*parameter == D2RepresentationParameter(0.1, 0, false, "", true));
        } else {
            EXPECT_FALSE(parameter);
        }
    }
}

}  // namespace
