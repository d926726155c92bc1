#pragma once

#include "codecs/j2kcodec.h"

/// Decodes JPEG 2000 pixel data (both transfer syntaxes), with HT code-blocks as well: where the dataset
/// holds the Transfer Syntax UID (0002,0010) of High-Throughput JPEG 2000, the codestream has to be what it
/// says. Frames come out with the dataset's Bits Allocated (8 or 16) and Planar Configuration, each sample
/// extended from the codestream's precision and sign. The codestream's header is held against Rows, Columns
/// and Samples per Pixel before anything is decoded; a codestream that is cut is an error. Three components
/// come out as RGB when they were coded under the multi-component transform, as YBR_FULL when they were not
/// and the object says YBR, all of them with full resolution.
class J2kDecoder : public J2kCodec {
public:
    OFCondition decode(const DcmRepresentationParameter* fromParameter, DcmPixelSequence* sequence,
                       DcmPolymorphOBOW& pixelData, const DcmCodecParameter* parameter, const DcmStack& stack,
                       OFBool& removeOldRepresentation) const override;
    OFCondition decodeFrame(const DcmRepresentationParameter* fromParameter, DcmPixelSequence* sequence,
                            const DcmCodecParameter* parameter, DcmItem* dataset, Uint32 frame,
                            Uint32& startFragment, void* buffer, Uint32 size,
                            OFString& colorModel) const override;
    OFBool canChangeCoding(const E_TransferSyntax from, const E_TransferSyntax to) const override;
    OFCondition determineDecompressedColorModel(const DcmRepresentationParameter* fromParameter,
                                                DcmPixelSequence* sequence,
                                                const DcmCodecParameter* parameter, DcmItem* dataset,
                                                OFString& colorModel) const override;
};
