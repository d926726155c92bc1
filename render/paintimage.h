#pragma once

#include "render/geometry.h"
#include "render/pixels.h"

/// Paints the source into the destination: see CDicomImage::PaintImage for the parameters. The destination is
/// filled with the background first. Source and destination have the same format. Returns 0 when a size makes
/// no sense; nothing visible is no failure.
template <class SrcPixel, class Accumulator, class DstPixel>
int _PaintImage(SrcPixel* src, CSize srcSize, DstPixel* dst, CSize dstSize, CPoint offset, CSize zoom,
                CRect clip, ORIENTATION orientation, int lutMode, void* lut, unsigned long background,
                int smooth);
