#pragma once

#include <memory>

#include "kelt4/iwaveletencoder.h"
#include "kelt4/kernel.h"

namespace dvq::kelt4 {

/// The encoder for a frame; null when the pixel format (1, 2 or 3 bytes per pixel) or a side (0 to 65535) is
/// not supported.
std::unique_ptr<IWaveletEncoder> createEncoder(const Kernel& kernel, int bytesPerPixel, int width,
                                               int height);

}  // namespace dvq::kelt4
