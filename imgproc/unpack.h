#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "imgproc/overlayplanes.h"
#include "imgproc/pixelkinds.h"

/// How the samples of a decoded frame lie in its bytes.
struct PixelFormat {
    unsigned int bitsAllocated = 0;
    unsigned int bitsStored = 0;
    unsigned int highBit = 0;
    bool isSigned = false;
    PhotometricKind photometricKind = PhotometricKind::Monochrome;
    uint32_t imageSamples = 0;     ///< samples that make one image
    uint32_t unpackedSamples = 0;  ///< that come out for one image: fewer for subsampled colour

    /// Bytes of one image's samples, the last one filled up.
    size_t bytes() const {
        const uint64_t samples = unpackedSamples;
        return static_cast<size_t>(bitsAllocated / 8 * samples + (bitsAllocated % 8 * samples + 7) / 8);
    }
};

/// Takes the samples of one image after another.
class SampleSink {
public:
    virtual ~SampleSink() = default;

    /// Begins an image; false when it cannot be kept.
    virtual bool imageStart() = 0;
    /// Samples of the image, in their order; the sink may change them.
    virtual void addSamples(unsigned short* samples, unsigned int count) = 0;
    virtual void addSamples(unsigned char* samples, unsigned int count) = 0;
    /// All samples of the image have come.
    virtual void imageDone() = 0;
};

/// Unpacks the samples of a decoded frame by their bits and hands them to `sink`, image after image, as bytes
/// or 16-bit words. Overlay bits go to `overlays`, and bits that are not stored are cleared, in place where
/// samples are whole bytes or words. Bits Allocated of 1 to 16; `bytes` holds at least format.bytes(),
/// suitably aligned for words. A frame that holds less than an image gives none. False when the sink refused
/// an image.
bool unpackFrame(const PixelFormat& format, std::span<uint8_t> bytes, OverlayPlanes& overlays,
                 SampleSink& sink);

/// Reduces samples to 8 bits in place: the top bits below the high bit, of which as many as are stored.
void reduceToBytes(const PixelFormat& format, std::span<unsigned short> samples);
void reduceToBytes(const PixelFormat& format, std::span<unsigned char> samples);
