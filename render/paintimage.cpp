#include "render/paintimage.h"

#include <type_traits>
#include <vector>

#include "render/areaaverage.h"
#include "render/bilinear.h"
#include "render/nearest.h"
#include "render/paintparameters.h"

namespace {

/// Looks results up in the caller's table.
template <class Pixel>
class LookUp {
public:
    LookUp(int mode, const void* table) : m_grey(mode != 0), m_table(static_cast<const Channel*>(table)) {}

    Pixel operator()(const Pixel& pixel) const {
        if constexpr (Pixel::kChannels == 1) {
            return {m_table[pixel.value]};
        } else {
            if (!m_grey) return {m_table[pixel.r], m_table[pixel.g], m_table[pixel.b]};
            const Channel grey = m_table[(pixel.r + 2 * pixel.g + pixel.b) >> 2];
            return {grey, grey, grey};
        }
    }

private:
    using Channel = typename Pixel::Channel;
    bool m_grey;
    const Channel* m_table;
};

/// Has the sampler make every visible row and puts it where the orientation wants it.
template <class Pixel, class Sampler>
void paintRows(Sampler sampler, const PaintParameters& p, Pixel* dst, int lutMode, const void* lut) {
    const bool inPlace = p.columnStep == 1;
    std::vector<Pixel> buffer(inPlace ? 0 : static_cast<size_t>(p.columns));
    const LookUp<Pixel> lookUp(lutMode, lut);
    for (int row = 0; row < p.rows; ++row) {
        Pixel* target = dst + p.start + row * p.rowStep;
        Pixel* line = inPlace ? target : buffer.data();
        sampler.sampleRow(row, line);
        if (lut != nullptr)
            for (int i = 0; i < p.columns; ++i)
                line[i] = lookUp(line[i]);
        if (!inPlace)
            for (int i = 0; i < p.columns; ++i)
                target[i * p.columnStep] = line[i];
    }
}

bool isWhole(double value) {
    return value == static_cast<double>(static_cast<int64_t>(value));
}

}  // namespace

template <class SrcPixel, class Accumulator, class DstPixel>
int _PaintImage(SrcPixel* src, CSize srcSize, DstPixel* dst, CSize dstSize, CPoint offset, CSize zoom,
                CRect clip, ORIENTATION orientation, int lutMode, void* lut, unsigned long background,
                int smooth) {
    static_assert(std::is_same_v<SrcPixel, DstPixel>, "formats are not converted");
    PaintParameters p;
    if (!PreparePaintParameters(srcSize, dst, dstSize, offset, zoom, clip, orientation, background, p))
        return 0;
    if (!p.visible) return 1;

    const bool shrunk = p.zoom.cx < srcSize.cx || p.zoom.cy < srcSize.cy;
    if (smooth == 0)
        paintRows(PointSampler<SrcPixel>(src, p), p, dst, lutMode, lut);
    else if (!shrunk)
        paintRows(BilinearSampler<SrcPixel>(src, p), p, dst, lutMode, lut);
    else if (p.scale >= 1 && isWhole(p.scale))
        paintRows(ReplicatingSampler<SrcPixel>(src, p), p, dst, lutMode, lut);
    else
        paintRows(AveragingSampler<SrcPixel, Accumulator>(src, p), p, dst, lutMode, lut);
    return 1;
}

template int _PaintImage<CPixelM08, CPixelDDD, CPixelM08>(CPixelM08*, CSize, CPixelM08*, CSize, CPoint, CSize,
                                                          CRect, ORIENTATION, int, void*, unsigned long, int);
template int _PaintImage<CPixelM16, CPixelDDD, CPixelM16>(CPixelM16*, CSize, CPixelM16*, CSize, CPoint, CSize,
                                                          CRect, ORIENTATION, int, void*, unsigned long, int);
template int _PaintImage<CPixelC08, CPixelCCC, CPixelC08>(CPixelC08*, CSize, CPixelC08*, CSize, CPoint, CSize,
                                                          CRect, ORIENTATION, int, void*, unsigned long, int);
