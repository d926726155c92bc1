#pragma once

#include <cstddef>

/// Compresses one picture of 8-bit grey (1 byte a pixel), 16-bit grey (2, host byte order) or RGB (3) pixels
/// into at most `outSize` bytes; the payload is a prefix of the whole progressive stream and decodes wherever
/// it is cut. `out` must hold at least 10 bytes: the header is written whatever `outSize` says. Returns the
/// number of bytes written, 0 when the coder failed.
size_t keltcompress(const void* pixels, int bitsUsed, int bytesPerPixel, int width, int height,
                    unsigned char* out, size_t outSize);
