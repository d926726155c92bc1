#pragma once

#include "codecs/d2jpeg2000.h"
#include "codecs/j2kdecoder.h"

/** Encodes pixel data to JPEG 2000, one codestream per frame, for one of the two transfer syntaxes. Takes a
 *  D2RepresentationParameter; the lossless-only syntax never loses a bit, whatever the parameter says. RGB
 * goes through the colour transform when the parameter wants it and the object then says YBR_RCT or YBR_ICT.
 */
class J2kEncoder : public DcmCodec {
public:
    explicit J2kEncoder(E_TransferSyntax target) : m_target(target) {}

    OFCondition decode(const DcmRepresentationParameter* fromParameter, DcmPixelSequence* sequence,
                       DcmPolymorphOBOW& pixelData, const DcmCodecParameter* parameter, const DcmStack& stack,
                       OFBool& removeOldRepresentation) const override;
    OFCondition decodeFrame(const DcmRepresentationParameter* fromParameter, DcmPixelSequence* sequence,
                            const DcmCodecParameter* parameter, DcmItem* dataset, Uint32 frame,
                            Uint32& startFragment, void* buffer, Uint32 size,
                            OFString& colorModel) const override;
    OFCondition encode(const Uint16* pixelData, const Uint32 length,
                       const DcmRepresentationParameter* toParameter, DcmPixelSequence*& sequence,
                       const DcmCodecParameter* parameter, DcmStack& stack,
                       OFBool& removeOldRepresentation) const override;
    OFCondition encode(const E_TransferSyntax fromSyntax, const DcmRepresentationParameter* fromParameter,
                       DcmPixelSequence* fromSequence, const DcmRepresentationParameter* toParameter,
                       DcmPixelSequence*& toSequence, const DcmCodecParameter* parameter, DcmStack& stack,
                       OFBool& removeOldRepresentation) const override;
    OFBool canChangeCoding(const E_TransferSyntax from, const E_TransferSyntax to) const override;
    OFCondition determineDecompressedColorModel(const DcmRepresentationParameter* fromParameter,
                                                DcmPixelSequence* sequence,
                                                const DcmCodecParameter* parameter, DcmItem* dataset,
                                                OFString& colorModel) const override;

private:
    E_TransferSyntax m_target;
};
