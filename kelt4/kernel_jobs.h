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
    /// They may not: the pass watches them.
    bool guarded;
    ComponentRows* components;
    ChunkStore* chunks;
    /// When it becomes true the pass ends early and the chunks are of no use.
    const bool* kill;
};

/// The coefficients of one component and class as they become known, 64 to a word in raster order.
struct ClassColumns {
    /// Number of coefficients and of the words that hold a bit for each.
    uint64_t size;
    uint64_t words;
    /// Known to be other than zero.
    uint64_t* significant;
    /// Significant above the plane that the next refinement chunk is of.
    uint64_t* refined;
    uint64_t* signs;
    /// Magnitude bits: plane p begins at word p * words.
    uint64_t* planes;
    uint64_t significantCount;
    /// How many coefficients of `refined` a refinement chunk that was cut off has reached.
    uint64_t partlyRefined;
};

/// The bits of a payload's stream; `end` is the number of bits in all.
struct BitSpan {
    const uint8_t* bytes;
    uint64_t end;
};

/// Decodes the significance chunk of a plane, whose first bit is at `position`.
struct SignificanceJob {
    BitSpan bits;
    uint64_t position;
    ClassColumns* target;
    int plane;
};

/// Decodes the refinement chunk of a plane.
struct RefinementJob {
    BitSpan bits;
    uint64_t position;
    ClassColumns* target;
    int plane;
};

enum class ChunkState { kWhole, kCutOff, kDamaged };

/// Where a chunk ended and how.
struct ChunkEnd {
    ChunkState state;
    uint64_t position;
};

/// Puts the coefficients together, undoes the transform and writes the pixels.
struct DecodeJob {
    int bytesPerPixel;
    int width;
    int height;
    int levels;
    /// Planes held by the classes.
    int planes;
    /// Of each component, from the finest class that takes part.
    const ClassColumns* classes[kMaxComponents];
    /// Laid out for 4-byte elements with 2 bytes per pixel, for 2-byte elements otherwise.
    ComponentRows* components;
    /// Rows without gaps in the layout of the encoder's source. Samples are limited to the range of their
    /// bytes.
    void* pixels;
};

}  // namespace dvq::kelt4
