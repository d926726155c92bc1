#pragma once

#include <cstdint>

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcpixel.h>

#include <string>

/// The JPEG 2000 codec library as a whole: what must be done once around the use of its codecs.
class D2JPEG2000Library {
public:
    /// Returns whether the OpenJPEG that the process runs with can decode strictly (2.5 and later).
    static bool initialize();
    static void cleanup() {}
};

/// How an object is to be compressed with JPEG 2000.
class D2RepresentationParameter : public DcmRepresentationParameter {
public:
    /// `compressionRate`: lossy: compressed size over original size, 0 < rate <= 1; 0.1 is ten to one
    /// `layers`: quality layers; 0 is the codec's choice, one
    /// `lossless`: keep every bit; the rate has no meaning then
    /// `comment`: text for the codestream's comment segment; empty: the library's own
    /// `multiComponentTransform`: code RGB through the colour transform (YBR_RCT or YBR_ICT)
    explicit D2RepresentationParameter(double compressionRate = 1.0, unsigned int layers = 0,
                                       bool lossless = true, const std::string& comment = {},
                                       bool multiComponentTransform = true);

    DcmRepresentationParameter* clone() const override;
    const char* className() const override;
    OFBool operator==(const DcmRepresentationParameter& other) const override;

    double compressionRate() const { return m_compressionRate; }
    unsigned int layers() const { return m_layers; }
    bool lossless() const { return m_lossless; }
    const std::string& comment() const { return m_comment; }
    bool multiComponentTransform() const { return m_multiComponentTransform; }

private:
    double m_compressionRate;
    unsigned int m_layers;
    bool m_lossless;
    std::string m_comment;
    bool m_multiComponentTransform;
};

/// Settings that hold for every object that the JPEG 2000 encoders write.
struct O2EncoderSettings {
    uint32_t fragmentSize = 0;      ///< largest fragment in kilobytes, 0: one fragment per frame
    bool createOffsetTable = true;  ///< fill the basic offset table
    bool newInstanceUID =
        false;  ///< lossy: give the object a new SOP Instance UID that refers to the old one
};
