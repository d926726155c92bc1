#include "imgproc/imageprocess.h"
#include "imgproc/rawimage.h"

// The last steps of unpacked samples before the raw image takes them.

void CImageProcess::addSamples(unsigned short* samples, unsigned int count) {
    if (count == 0) return;
    switch (m_attributes.photometricKind) {
        case PhotometricKind::Monochrome:
            adjustWords(samples, count);
            m_rawImage->addSamples(samples, count);
            break;
        case PhotometricKind::PaletteColor:
            addPaletteSamples(samples, count);
            break;
        default:
            reduceToBytes(m_format, std::span<unsigned short>(samples, count));
            adjustBytes(samples, count);
            m_rawImage->addByteSamples(samples, count);
            break;
    }
}

void CImageProcess::addSamples(unsigned char* samples, unsigned int count) {
    if (count == 0) return;
    if (m_format.highBit != 7 || m_format.bitsStored != 8)
        reduceToBytes(m_format, std::span<unsigned char>(samples, count));
    adjustBytes(samples, count);
    m_rawImage->addSamples(samples, count);
}

void CImageProcess::addPaletteSamples(const unsigned short* samples, unsigned int count) {
    for (unsigned int i = 0; i < count; ++i)
        for (int channel = 0; channel < 3; ++channel)
            m_rawImage->addSample(m_palette.at(channel, samples[i]));
}
