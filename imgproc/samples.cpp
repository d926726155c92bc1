#include <algorithm>

#include "imgproc/imageprocess.h"
#include "imgproc/rawimage.h"

// The last steps of decoded samples before the raw image takes them.

namespace {

/// Looks up samples in one channel's table: the high byte of the entry, beyond the last entry that of the
/// last.
class PaletteChannel {
public:
    explicit PaletteChannel(const std::vector<uint16_t>& table) : m_table(table) {}

    unsigned short at(size_t sample) const {
        if (m_table.empty()) return 0;
        return m_table[std::min(sample, m_table.size() - 1)] >> 8;
    }

private:
    const std::vector<uint16_t>& m_table;
};

/// The bits that stay when only the top `bitsStored` of 8 bits carry a value.
unsigned int topBits(unsigned int bitsStored) {
    return bitsStored < 8 ? 0xFFu << (8 - bitsStored) & 0xFFu : 0xFFu;
}

}  // namespace

void CImageProcess::makeBytes(unsigned short* samples, unsigned int count) const {
    const unsigned int keep = topBits(m_bitsStored);
    if (m_highBit >= 7) {
        const unsigned int down = std::min(m_highBit - 7u, 16u);
        for (unsigned int i = 0; i < count; ++i)
            samples[i] = static_cast<unsigned short>(uint32_t{samples[i]} >> down & keep);
    } else {
        const unsigned int up = 7u - m_highBit;
        for (unsigned int i = 0; i < count; ++i)
            samples[i] = static_cast<unsigned short>(uint32_t{samples[i]} << up & keep);
    }
}

void CImageProcess::makeBytes(unsigned char* samples, unsigned int count) const {
    const unsigned int keep = topBits(m_bitsStored);
    const unsigned int up = m_highBit < 7 ? 7u - m_highBit : 0u;
    for (unsigned int i = 0; i < count; ++i)
        samples[i] = static_cast<unsigned char>(uint32_t{samples[i]} << up & keep);
}

void CImageProcess::addSamples(unsigned short* samples, unsigned int count) {
    if (count == 0) return;
    switch (m_photometricKind) {
        case PhotometricKind::Monochrome:
            adjustWords(samples, count);
            m_rawImage->addSamples(samples, count);
            break;
        case PhotometricKind::PaletteColor:
            addPaletteSamples(samples, count);
            break;
        default:
            makeBytes(samples, count);
            adjustBytes(samples, count);
            m_rawImage->addByteSamples(samples, count);
            break;
    }
}

void CImageProcess::addSamples(unsigned char* samples, unsigned int count) {
    if (count == 0) return;
    if (m_highBit != 7 || m_bitsStored != 8) makeBytes(samples, count);
    adjustBytes(samples, count);
    m_rawImage->addSamples(samples, count);
}

void CImageProcess::addPaletteSamples(const unsigned short* samples, unsigned int count) {
    const PaletteChannel red(m_paletteTables[0]);
    const PaletteChannel green(m_paletteTables[1]);
    const PaletteChannel blue(m_paletteTables[2]);
    for (unsigned int i = 0; i < count; ++i) {
        m_rawImage->addSample(red.at(samples[i]));
        m_rawImage->addSample(green.at(samples[i]));
        m_rawImage->addSample(blue.at(samples[i]));
    }
}
