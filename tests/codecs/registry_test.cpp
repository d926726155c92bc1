#include <dcmtk/dcmdata/dccodec.h>

#include "codecs/codecregistry.h"
#include "tests/shared/testing.h"

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

}  // namespace
