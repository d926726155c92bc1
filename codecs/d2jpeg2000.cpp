#include "codecs/d2jpeg2000.h"

#include <openjpeg.h>

#include <cstdio>

bool D2JPEG2000Library::initialize() {
    int major = 0, minor = 0;
    // NOLINTNEXTLINE(cert-err34-c): the library's own version, two small numbers
    if (std::sscanf(opj_version(), "%d.%d", &major, &minor) != 2) return false;
    return major > 2 || (major == 2 && minor >= 5);
}

D2RepresentationParameter::D2RepresentationParameter(double compressionRate, unsigned int layers,
                                                     bool lossless, const std::string& comment,
                                                     bool multiComponentTransform)
    : m_compressionRate(compressionRate),
      m_layers(layers),
      m_lossless(lossless),
      m_comment(comment),
      m_multiComponentTransform(multiComponentTransform) {}

DcmRepresentationParameter* D2RepresentationParameter::clone() const {
    return new D2RepresentationParameter(*this);
}

const char* D2RepresentationParameter::className() const {
    return "D2RepresentationParameter";
}

OFBool D2RepresentationParameter::operator==(const DcmRepresentationParameter& other) const {
    const auto* parameter = dynamic_cast<const D2RepresentationParameter*>(&other);
    if (!parameter) return OFFalse;
    if (m_lossless != parameter->m_lossless) return OFFalse;
    // The rate of a lossless parameter has no meaning, so it does not tell two of them apart.
    return (m_lossless || m_compressionRate == parameter->m_compressionRate) &&
           m_layers == parameter->m_layers && m_comment == parameter->m_comment &&
           m_multiComponentTransform == parameter->m_multiComponentTransform;
}
