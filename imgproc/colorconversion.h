#pragma once

#include <cstddef>

#include "imgproc/pixelkinds.h"

/// Converts the YBR pixels of a frame of `bytes` bytes to R, G, B in place; nothing for other kinds. A pixel
/// has `stride` bytes, at least 3; subsampled frames hold Y1 Y2 Cb Cr for each pair at their beginning and
/// have room for three bytes a pixel.
void convertToRgb(PhotometricKind kind, unsigned char* pixels, size_t bytes, size_t stride);
