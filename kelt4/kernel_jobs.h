#pragma once

#include <cstdint>

#include "kelt4/chunkstore.h"
#include "kelt4/rowbuffers.h"

/// What kernels are given to work on. Kernels allocate nothing themselves.
namespace dvq::kelt4 {

/// A frame to transform and to code into chunks in one pass.
struct EncodeJob {
    /// Rows of width pixels without gaps: 8-bit grey (1), 16-bit grey (2) or RGB (3 bytes per pixel).
    const void* pixels;
    int bytesPerPixel;
    int width;
    int height;
    int levels;
    /// Coefficients fit 16-bit elements; the rows are laid out for this size of element.
    bool narrow;
    ComponentRows* components;
    ChunkStore* chunks;
    /// When it becomes true the pass ends early and the chunks are of no use.
    const bool* kill;
};

}  // namespace dvq::kelt4
