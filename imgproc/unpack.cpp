#include <span>
#include <type_traits>

#include "imgproc/bitshifts.h"
#include "imgproc/imageprocess.h"

// From the bytes of one uncompressed frame to samples, by Bits Allocated.

namespace {

/// Takes samples of a fixed number of bits out of bytes, the first sample in the lowest bits.
class BitReader {
public:
    BitReader(std::span<const uint8_t> bytes, unsigned int sampleBits)
        : m_bytes(bytes), m_sampleBits(sampleBits), m_mask((1u << sampleBits) - 1) {}

    uint64_t bitsLeft() const { return m_held + 8 * uint64_t{m_bytes.size() - m_next}; }

    /// Only while bitsLeft() is at least the sample's bits.
    uint16_t next() {
        while (m_held < m_sampleBits) {
            m_accumulator |= uint32_t{m_bytes[m_next++]} << m_held;
            m_held += 8;
        }
        const uint32_t sample = m_accumulator & m_mask;
        m_accumulator >>= m_sampleBits;
        m_held -= m_sampleBits;
        return static_cast<uint16_t>(sample);
    }

private:
    std::span<const uint8_t> m_bytes;
    unsigned int m_sampleBits;
    uint32_t m_mask;
    size_t m_next = 0;
    uint32_t m_accumulator = 0;
    unsigned int m_held = 0;
};

}  // namespace

int CImageProcess::processImageBytes() {
    const bool palette = m_photometricKind == PhotometricKind::PaletteColor;
    if (m_bitsAllocated == 16) return processWholeWords();
    if (m_bitsAllocated == 8 && !palette) return processWholeBytes();
    if (m_bitsAllocated == 0 || m_bitsAllocated > 16) {
        reportFailure("Bits Allocated (0028,0100) of " + std::to_string(m_bitsAllocated) +
                      " is not supported");
        return 1;
    }
    const int allocated = m_bitsAllocated;
    if (allocated < 8 && !palette) {
        const uint32_t keep =
            shiftedLeft(shiftedRight(0xFF, allocated - m_bitsStored), allocated - m_highBit - 1);
        return unpackSamples<unsigned char>(keep & 0xFF);
    }
    const uint32_t keep =
        shiftedLeft(shiftedRight(0xFFFF, allocated - m_bitsStored), m_highBit + 1 - m_bitsStored);
    return unpackSamples<unsigned short>(keep & 0xFFFF);
}

int CImageProcess::processWholeWords() {
    if (m_bitsStored != 16) getAndRemoveOverlays();
    auto* words = reinterpret_cast<unsigned short*>(m_frameBuffer.data());
    for (size_t left = m_frameByteCount / 2; left >= m_frameSampleCount; left -= m_frameSampleCount) {
        if (!imageStart()) return 1;
        addSamples(words, m_frameSampleCount);
        imageDone();
        words += m_frameSampleCount;
    }
    return 0;
}

int CImageProcess::processWholeBytes() {
    if (m_bitsStored != 8) getAndRemoveOverlays();
    unsigned char* bytes = m_frameBuffer.data();
    for (size_t left = m_frameByteCount; left >= m_frameSampleCount; left -= m_frameSampleCount) {
        if (!imageStart()) return 1;
        addSamples(bytes, m_unpackSampleCount);
        imageDone();
        bytes += m_frameSampleCount;
    }
    return 0;
}

template <typename Sample>
int CImageProcess::unpackSamples(uint16_t keepMask) {
    std::vector<Sample> samples(m_unpackSampleCount);
    BitReader reader({m_frameBuffer.data(), m_frameByteCount}, m_bitsAllocated);
    // What is left behind the last sample is padding up to the next byte, not a further image.
    do {
        if (!imageStart()) return 1;
        if (reader.bitsLeft() < uint64_t{m_bitsAllocated} * m_unpackSampleCount) return 0;
        for (Sample& sample : samples)
            sample = static_cast<Sample>(reader.next());
        takeOverlayBits(samples.data(), samples.size());
        for (Sample& sample : samples)
            sample &= keepMask;
        addSamples(samples.data(), m_unpackSampleCount);
        imageDone();
    } while (reader.bitsLeft() > 7);
    return 0;
}
