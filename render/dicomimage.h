#pragma once

#include <cstdint>

#include "render/geometry.h"
#include "render/pixels.h"

/// An image: width x height pixels of one format, rows without gaps. The pixels are the image's own or
/// borrowed.
class CDicomImage {
public:
    CDicomImage() = default;
    CDicomImage(const CDicomImage&) = delete;
    CDicomImage& operator=(const CDicomImage&) = delete;
    virtual ~CDicomImage() = default;

    /// Renders this image into a new image.
    /// `dstSize`: the new image's size; `offset`: where the zoomed image's corner lies in it.
    /// `zoom`: the size at which this image is painted, after turning.
    /// `clip`: the only part of the new image that is painted; the rest keeps the background.
    /// `lutMode`: with a table and a colour image: 0 looks every channel up, others the grey value for
    /// all three.
    /// `lut`: null, or a table that every result is looked up in: 256 bytes, or 65536 16-bit entries for
    ///     CPixelM16.
    /// `background`: r, g, b in bits 0-7, 8-15 and 16-23.
    /// `smooth`: 0 takes single pixels, others average or interpolate.
    /// `dstType`: must be this image's own type.
    /// `out`: an image that is there is deleted; receives the new image, the caller's own, or null.
    /// Returns 0 on failure.
    virtual int PaintImage(CSize dstSize, CPoint offset, CSize zoom, CRect clip, ORIENTATION orientation,
                           int lutMode, void* lut, unsigned long background, int smooth, COLOR_TYPE dstType,
                           CDicomImage** out) = 0;

    /// Makes the image width x height pixels large, with pixels of its own. 0 when that cannot be had.
    virtual int Create(int width, int height);
    /// Wraps pixels of the caller's, which must outlive the image. 0 when there are none.
    virtual int Create(int width, int height, void* pixels);

    /// Address of a pixel; null outside the image.
    virtual unsigned char* GetImageLine(int x, int y);
    /// A run of pixels; see the function template of this name. `buffer` holds count pixels.
    virtual unsigned char* GetImageLine(int x, int y, int count, unsigned char* buffer);

    /// A smooth copy, in the same format, of the size that `EncapsulatedSize(width, height)` gives, which
    /// also replaces width and height. `*out` must be null and receives the copy, the caller's own. Returns 0
    /// on failure.
    virtual int ResampleImage(CDicomImage** out, int& width, int& height) = 0;
    virtual COLOR_TYPE GetColorType() const = 0;

    /// The largest size within the target that keeps the aspect ratio, doubled while either side is below 32
    /// and none would exceed 65535. A side that would vanish gives the image's own size, doubled likewise; an
    /// image without pixels gives (0, 0).
    CSize EncapsulatedSize(CSize target) const;
    /// Writes the pixels into a new file. 0 when it cannot be opened or written.
    int SaveToFile(const char* path) const;

    const CSize& size() const { return m_size; }
    const unsigned char* pixels() const { return m_pixels; }
    uint32_t bufferSize() const { return m_bufferSize; }

protected:
    unsigned char* m_pixels = nullptr;
    CSize m_size;
    uint32_t m_bufferSize = 0;  ///< In bytes.
};
