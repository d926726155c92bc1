#include "imgproc/unpack.h"

#include <algorithm>
#include <vector>

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

// Shifts by counts that come from a header. Like the processor's, a count is taken modulo 32, so that a
// negative one clears a mask of 16 bits instead of being undefined.
constexpr uint32_t shiftedRight(uint32_t value, int count) {
    return value >> (static_cast<unsigned int>(count) & 31U);
}

constexpr uint32_t shiftedLeft(uint32_t value, int count) {
    return value << (static_cast<unsigned int>(count) & 31U);
}

template <typename Sample>
void keepBits(std::span<Sample> samples, Sample mask) {
    for (Sample& sample : samples)
        sample = static_cast<Sample>(sample & mask);
}

/// Keeps the bits of the mask, whose highest bit is the sign, and repeats the sign in all bits above it.
void keepSignedBits(std::span<uint16_t> samples, uint16_t mask, uint16_t sign) {
    for (uint16_t& sample : samples)
        sample = static_cast<uint16_t>(((sample & mask) ^ sign) - sign);
}

/// The bits of a whole byte or word that are stored, at their place below the high bit.
template <typename Sample>
Sample storedBits(const PixelFormat& format) {
    constexpr int kWidth = 8 * sizeof(Sample);
    const int stored = static_cast<int>(format.bitsStored);
    return static_cast<Sample>(shiftedLeft(shiftedRight((1u << kWidth) - 1, kWidth - stored),
                                           static_cast<int>(format.highBit) + 1 - stored));
}

/// The same of samples that are not whole bytes or words.
template <typename Sample>
Sample storedBitsOfPacked(const PixelFormat& format) {
    const int allocated = static_cast<int>(format.bitsAllocated);
    const int stored = static_cast<int>(format.bitsStored);
    const int high = static_cast<int>(format.highBit);
    if constexpr (sizeof(Sample) == 1)
        return static_cast<Sample>(shiftedLeft(shiftedRight(0xFF, allocated - stored), allocated - high - 1));
    else
        return static_cast<Sample>(shiftedLeft(shiftedRight(0xFFFF, allocated - stored), high + 1 - stored));
}

/// Moves overlay bits out of the frame's samples and clears what is not stored.
template <typename Sample>
void getAndRemoveOverlays(const PixelFormat& format, std::span<Sample> samples, OverlayPlanes& overlays) {
    overlays.takeBits(samples.data(), samples.size());
    const auto mask = storedBits<Sample>(format);
    if constexpr (sizeof(Sample) == 2) {
        if (format.isSigned && format.highBit < 15) {
            keepSignedBits(samples, mask, static_cast<uint16_t>(mask & (1U << format.highBit)));
            return;
        }
    }
    keepBits(samples, mask);
}

/// Samples that fill their bytes or words, as many images as are whole.
template <typename Sample>
bool passWhole(const PixelFormat& format, std::span<Sample> samples, uint32_t count, OverlayPlanes& overlays,
               SampleSink& sink) {
    if (format.bitsStored != 8 * sizeof(Sample)) getAndRemoveOverlays(format, samples, overlays);
    for (; samples.size() >= format.imageSamples; samples = samples.subspan(format.imageSamples)) {
        if (!sink.imageStart()) return false;
        sink.addSamples(samples.data(), count);
        sink.imageDone();
    }
    return true;
}

template <typename Sample>
bool passPacked(const PixelFormat& format, std::span<const uint8_t> bytes, OverlayPlanes& overlays,
                SampleSink& sink) {
    std::vector<Sample> samples(format.unpackedSamples);
    BitReader reader(bytes, format.bitsAllocated);
    const auto mask = storedBitsOfPacked<Sample>(format);
    // What is left behind the last sample is padding up to the next byte, not a further image.
    do {
        if (!sink.imageStart()) return false;
        if (reader.bitsLeft() < uint64_t{format.bitsAllocated} * format.unpackedSamples) return true;
        for (Sample& sample : samples)
            sample = static_cast<Sample>(reader.next());
        overlays.takeBits(samples.data(), samples.size());
        keepBits(std::span<Sample>(samples), mask);
        sink.addSamples(samples.data(), format.unpackedSamples);
        sink.imageDone();
    } while (reader.bitsLeft() > 7);
    return true;
}

/// The bits that stay when only the top `bitsStored` of 8 bits carry a value.
unsigned int topBits(unsigned int bitsStored) {
    return bitsStored < 8 ? 0xFFu << (8 - bitsStored) & 0xFFu : 0xFFu;
}

}  // namespace

bool unpackFrame(const PixelFormat& format, std::span<uint8_t> bytes, OverlayPlanes& overlays,
                 SampleSink& sink) {
    const bool palette = format.photometricKind == PhotometricKind::PaletteColor;
    const std::span<uint8_t> frame = bytes.first(format.bytes());
    if (format.bitsAllocated == 16) {
        const std::span<uint16_t> words{reinterpret_cast<uint16_t*>(frame.data()), frame.size() / 2};
        return passWhole(format, words, format.imageSamples, overlays, sink);
    }
    if (format.bitsAllocated == 8 && !palette)
        return passWhole(format, frame, format.unpackedSamples, overlays, sink);
    if (format.bitsAllocated < 8 && !palette) return passPacked<uint8_t>(format, frame, overlays, sink);
    return passPacked<uint16_t>(format, frame, overlays, sink);
}

void reduceToBytes(const PixelFormat& format, std::span<unsigned short> samples) {
    const unsigned int keep = topBits(format.bitsStored);
    if (format.highBit >= 7) {
        const unsigned int down = std::min(format.highBit - 7u, 16u);
        for (unsigned short& sample : samples)
            sample = static_cast<unsigned short>(uint32_t{sample} >> down & keep);
    } else {
        const unsigned int up = 7u - format.highBit;
        for (unsigned short& sample : samples)
            sample = static_cast<unsigned short>(uint32_t{sample} << up & keep);
    }
}

void reduceToBytes(const PixelFormat& format, std::span<unsigned char> samples) {
    const unsigned int keep = topBits(format.bitsStored);
    const unsigned int up = format.highBit < 7 ? 7u - format.highBit : 0u;
    for (unsigned char& sample : samples)
        sample = static_cast<unsigned char>(uint32_t{sample} << up & keep);
}
