#pragma once

#include "codecs/d2jpeg2000.h"
#include "codecs/j2kcodec.h"

/// Encodes pixel data to JPEG 2000, one codestream per frame, for one of the two transfer syntaxes. Takes a
/// D2RepresentationParameter; the lossless-only syntax never loses a bit, whatever the parameter says. RGB
/// goes through the colour transform when the parameter wants it and the object then says YBR_RCT or YBR_ICT.
class J2kEncoder : public J2kCodec {
public:
    explicit J2kEncoder(E_TransferSyntax target) : m_target(target) {}

    using J2kCodec::encode;
    OFCondition encode(const Uint16* pixelData, const Uint32 length,
                       const DcmRepresentationParameter* toParameter, DcmPixelSequence*& sequence,
                       const DcmCodecParameter* parameter, DcmStack& stack,
                       OFBool& removeOldRepresentation) const override;
    OFBool canChangeCoding(const E_TransferSyntax from, const E_TransferSyntax to) const override;

private:
    E_TransferSyntax m_target;
};
