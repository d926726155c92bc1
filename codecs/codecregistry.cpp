#include "codecs/codecregistry.h"

#include <dcmtk/dcmdata/dcrledrg.h>
#include <dcmtk/dcmjpeg/djdecode.h>
#include <dcmtk/dcmjpeg/djencode.h>
#include <dcmtk/dcmjpeg/djrplol.h>
#include <dcmtk/dcmjpeg/djrploss.h>
#include <dcmtk/dcmjpls/djdecode.h>

#include "codecs/o2registration.h"

CodecRegistry::CodecRegistry() {
    DcmRLEDecoderRegistration::registerCodecs(OFFalse, OFFalse);
    D2JPEG2000Library::initialize();
    O2EncoderRegistration::registerCodecs();
    O2DecoderRegistration::registerCodecs();
    constexpr bool kOptimizeHuffman = true, kCreateOffsetTable = true, kWriteSubsampled = false;
    constexpr int kSmoothing = 0, kForcedBitDepth = 0, kFragmentSize = 0;
    DJEncoderRegistration::registerCodecs(ECC_lossyRGB, EUC_never, kOptimizeHuffman, kSmoothing,
                                          kForcedBitDepth, kFragmentSize, kCreateOffsetTable, ESS_444,
                                          kWriteSubsampled);
    DJDecoderRegistration::registerCodecs(EDC_photometricInterpretation, EUC_default, EPC_default);
    DJLSDecoderRegistration::registerCodecs();
}

CodecRegistry::~CodecRegistry() {
    DJLSDecoderRegistration::cleanup();
    DJEncoderRegistration::cleanup();
    DJDecoderRegistration::cleanup();
    O2EncoderRegistration::cleanup();
    O2DecoderRegistration::cleanup();
    D2JPEG2000Library::cleanup();
    DcmRLEDecoderRegistration::cleanup();
}

DcmRepresentationParameter* CodecRegistry::getRepresentationParameter(DcmDataset& dataset,
                                                                      E_TransferSyntax xfer) {
    switch (xfer) {
        case EXS_JPEGProcess14:
        case EXS_JPEGProcess14SV1:
            return new DJ_RPLossless(6, 0);
        case EXS_JPEG2000LosslessOnly:
            return new D2RepresentationParameter(1.0, 0, true, "", true);
        case EXS_JPEG2000: {
            const double rate = getJPEG2000LossyCompressionRate(dataset);
            return new D2RepresentationParameter(rate, 0, rate == 1.0, "", true);
        }
        default:
            break;
    }
    const bool lossyJpeg = xfer >= EXS_JPEGProcess1 && xfer <= EXS_JPEGProcess29;
    return lossyJpeg ? new DJ_RPLossy(90) : nullptr;
}
