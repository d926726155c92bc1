#pragma once

#include <dcmtk/dcmdata/dcdatset.h>

#include "codecs/d2jpeg2000.h"
#include "codecs/jpeg2000lossyrates.h"

/// Registers the codecs that the service uses with the toolkit for as long as it lives: decoders for RLE,
/// JPEG, JPEG-LS and JPEG 2000, encoders for JPEG and JPEG 2000. Registration belongs to the whole process:
/// at most one registry at a time.
class CodecRegistry {
public:
    CodecRegistry();
    ~CodecRegistry();
    CodecRegistry(const CodecRegistry&) = delete;
    CodecRegistry& operator=(const CodecRegistry&) = delete;

    /// The parameters with which `dataset` is to be compressed to `xfer`; for lossy JPEG 2000 the rate is
    /// that of the dataset's modality.
    /// Returns a new object that the caller owns; null when the transfer syntax takes none.
    static DcmRepresentationParameter* getRepresentationParameter(DcmDataset& dataset, E_TransferSyntax xfer);
};
