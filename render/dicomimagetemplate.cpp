#include "render/dicomimagetemplate.h"

#include <limits>
#include <new>

#include "render/imageline.h"
#include "render/paintimage.h"

namespace {

/// The bytes of width x height pixels; 0 when there are none or more than an image can hold.
uint32_t bytesOf(int width, int height, uint64_t pixelSize) {
    if (width <= 0 || height <= 0) return 0;
    const uint64_t pixels = static_cast<uint64_t>(width) * static_cast<uint64_t>(height);
    constexpr uint64_t kMost = std::numeric_limits<uint32_t>::max();
    return pixels > kMost / pixelSize ? 0 : static_cast<uint32_t>(pixels * pixelSize);
}

}  // namespace

template <class Pixel, class Accumulator>
int CDicomImageTemplate<Pixel, Accumulator>::adopt(int width, int height, void* pixels) {
    m_pixels = static_cast<unsigned char*>(pixels);
    m_size = {width, height};
    m_bufferSize = bytesOf(width, height, sizeof(Pixel));
    return 1;
}

template <class Pixel, class Accumulator>
int CDicomImageTemplate<Pixel, Accumulator>::Create(int width, int height) {
    const uint32_t bytes = bytesOf(width, height, sizeof(Pixel));
    if (bytes == 0) return 0;
    std::unique_ptr<Pixel[]> pixels(new (std::nothrow) Pixel[bytes / sizeof(Pixel)]);
    if (!pixels) return 0;
    m_ownPixels = std::move(pixels);
    return adopt(width, height, m_ownPixels.get());
}

template <class Pixel, class Accumulator>
int CDicomImageTemplate<Pixel, Accumulator>::Create(int width, int height, void* pixels) {
    if (pixels == nullptr || bytesOf(width, height, sizeof(Pixel)) == 0) return 0;
    m_ownPixels.reset();
    return adopt(width, height, pixels);
}

template <class Pixel, class Accumulator>
unsigned char* CDicomImageTemplate<Pixel, Accumulator>::GetImageLine(int x, int y) {
    if (x < 0 || y < 0 || x >= m_size.cx || y >= m_size.cy) return nullptr;
    return reinterpret_cast<unsigned char*>(typedPixels() + y * m_size.cx + x);
}

template <class Pixel, class Accumulator>
unsigned char* CDicomImageTemplate<Pixel, Accumulator>::GetImageLine(int x, int y, int count,
                                                                     unsigned char* buffer) {
    return reinterpret_cast<unsigned char*>(
        ::GetImageLine<Pixel>(typedPixels(), m_size, x, y, count, reinterpret_cast<Pixel*>(buffer)));
}

template <class Pixel, class Accumulator>
int CDicomImageTemplate<Pixel, Accumulator>::ResampleImage(CDicomImage** out, int& width, int& height) {
    if (out == nullptr || *out != nullptr || width <= 0 || height <= 0) return 0;
    const CSize size = EncapsulatedSize({width, height});
    if (bytesOf(static_cast<int>(size.cx), static_cast<int>(size.cy), sizeof(Pixel)) == 0) return 0;
    width = static_cast<int>(size.cx);
    height = static_cast<int>(size.cy);
    return PaintImage(size, {}, size, CRect(CPoint(), size), ORIENTATION_NORMAL, 0, nullptr, 0, 1,
                      GetColorType(), out);
}

template <class Pixel, class Accumulator>
int CDicomImageTemplate<Pixel, Accumulator>::PaintImage(CSize dstSize, CPoint offset, CSize zoom, CRect clip,
                                                        ORIENTATION orientation, int lutMode, void* lut,
                                                        unsigned long background, int smooth,
                                                        COLOR_TYPE dstType, CDicomImage** out) {
    delete *out;
    *out = nullptr;
    if (dstType != Pixel::kColorType) return 0;
    auto image = std::make_unique<CDicomImageTemplate>();
    if (!image->Create(static_cast<int>(dstSize.cx), static_cast<int>(dstSize.cy))) return 0;
    if (!_PaintImage<Pixel, Accumulator, Pixel>(typedPixels(), m_size, image->typedPixels(), dstSize, offset,
                                                zoom, clip, orientation, lutMode, lut, background, smooth))
        return 0;
    *out = image.release();
    return 1;
}

template class CDicomImageTemplate<CPixelM08, CPixelDDD>;
template class CDicomImageTemplate<CPixelM16, CPixelDDD>;
template class CDicomImageTemplate<CPixelC08, CPixelCCC>;
