#pragma once

#include <memory>

#include "render/dicomimage.h"

/// The images of one pixel format.
template <class Pixel, class Accumulator>
class CDicomImageTemplate : public CDicomImage {
public:
    int PaintImage(CSize dstSize, CPoint offset, CSize zoom, CRect clip, ORIENTATION orientation, int lutMode,
                   void* lut, unsigned long background, int smooth, COLOR_TYPE dstType,
                   CDicomImage** out) override;
    int Create(int width, int height) override;
    int Create(int width, int height, void* pixels) override;
    unsigned char* GetImageLine(int x, int y) override;
    unsigned char* GetImageLine(int x, int y, int count, unsigned char* buffer) override;
    int ResampleImage(CDicomImage** out, int& width, int& height) override;
    COLOR_TYPE GetColorType() const override { return Pixel::kColorType; }

private:
    Pixel* typedPixels() { return reinterpret_cast<Pixel*>(m_pixels); }
    int adopt(int width, int height, void* pixels);

    std::unique_ptr<Pixel[]> m_ownPixels;  ///< Null when the pixels are borrowed.
};

extern template class CDicomImageTemplate<CPixelM08, CPixelDDD>;
extern template class CDicomImageTemplate<CPixelM16, CPixelDDD>;
extern template class CDicomImageTemplate<CPixelC08, CPixelCCC>;
