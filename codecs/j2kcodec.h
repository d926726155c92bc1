#pragma once

#include <dcmtk/dcmdata/dccodec.h>
#include <dcmtk/dcmdata/dcerror.h>

#include "codecs/d2jpeg2000.h"

/// The settings of our JPEG 2000 codecs in the toolkit's shape.
class J2kCodecParameter : public DcmCodecParameter {
public:
    explicit J2kCodecParameter(const O2EncoderSettings& settings = {}) : m_settings(settings) {}
    DcmCodecParameter* clone() const override { return new J2kCodecParameter(*this); }
    const char* className() const override { return "J2kCodecParameter"; }
    const O2EncoderSettings& encoder() const { return m_settings; }

private:
    O2EncoderSettings m_settings;
};

/// What the toolkit asks of every codec and ours has no answer to: a decoder does not encode, an encoder does
/// not decode, and neither goes from one compressed form to another, for which the toolkit comes with plain
/// pixel data. A codec overrides what it can do.
class J2kCodec : public DcmCodec {
public:
    OFCondition decode(const DcmRepresentationParameter*, DcmPixelSequence*, DcmPolymorphOBOW&,
                       const DcmCodecParameter*, const DcmStack&, OFBool&) const override {
        return EC_IllegalCall;
    }
    OFCondition decodeFrame(const DcmRepresentationParameter*, DcmPixelSequence*, const DcmCodecParameter*,
                            DcmItem*, Uint32, Uint32&, void*, Uint32, OFString&) const override {
        return EC_IllegalCall;
    }
    OFCondition encode(const Uint16*, const Uint32, const DcmRepresentationParameter*, DcmPixelSequence*&,
                       const DcmCodecParameter*, DcmStack&, OFBool&) const override {
        return EC_IllegalCall;
    }
    OFCondition encode(const E_TransferSyntax, const DcmRepresentationParameter*, DcmPixelSequence*,
                       const DcmRepresentationParameter*, DcmPixelSequence*&, const DcmCodecParameter*,
                       DcmStack&, OFBool&) const override {
        return EC_IllegalCall;
    }
    OFCondition determineDecompressedColorModel(const DcmRepresentationParameter*, DcmPixelSequence*,
                                                const DcmCodecParameter*, DcmItem*,
                                                OFString&) const override {
        return EC_IllegalCall;
    }
};
