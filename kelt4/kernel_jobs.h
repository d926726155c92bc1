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

/// The bits of a payload's stream; `end` is the number of bits in all.
struct BitSpan {
    const uint8_t* bytes;
    uint64_t end;
};

/// How far the codes of a significance chunk have been turned into bits of its candidates.
struct EventState {
    uint64_t position;
    /// Where the chunk ends; of one that is cut off or damaged, its last whole code or the stream.
    uint64_t end;
    /// Candidates that the codes up to the position tell of, and those that were asked for.
    uint64_t told;
    uint64_t asked;
    /// Of a run that was read and not placed yet: its zeros and the sign of the 1 after them.
    uint64_t run;
    bool runPending;
    bool runNegative;
    /// No 1 follows any more: the closing run was met, or there is none that ends with the chunk.
    bool ended;
    bool closed;
    /// Candidates that were decoded and not asked for yet, fewer than 64, and their bits.
    uint8_t held;
    uint64_t ones;
    uint64_t signs;
};

/// What a stream has of one plane of a class.
struct CodedPlane {
    /// There is a significance chunk with any bits. `events` begins at its first bit.
    bool hasSignificance;
    bool hasRefinement;
    EventState events;
    /// The refinement chunk's next bit. Bits that the stream does not have count too.
    uint64_t refinement;
};

/// Elements have 32 bits at most, so no coefficient has more planes.
inline constexpr int kMaxPlanes = 32;
/// Words of 64 coefficients that are decoded at a time, two groups of them at once.
inline constexpr int kGroupWords = 64;

/// One component and class in a stream: where its chunks are, and while it is decoded how far that is.
struct CodedClass {
    /// Number of coefficients, and those that were given out.
    uint64_t size;
    uint64_t done;
    /// The highest plane whose refinement chunk is missing or cut off; -1 for none. Of one that is cut off,
    /// the coefficients that it still refines.
    int unrefined;
    uint64_t partlyRefined;
    CodedPlane planes[kMaxPlanes];
};

/// Puts the coefficients together, undoes the transform and writes the pixels, all in one pass over the rows.
struct DecodeJob {
    int bytesPerPixel;
    int width;
    int height;
    int levels;
    /// Planes held by the classes.
    int planes;
    /// Coefficients are put into 16-bit elements; the rows are laid out for this size of element. Always with
    /// 1 and 3 bytes per pixel.
    bool narrow;
    BitSpan bits;
    /// Of each component, from the finest class that takes part.
    CodedClass* classes[kMaxComponents];
    ComponentRows* components;
    /// Rows without gaps in the layout of the encoder's source. Samples are limited to the range of their
    /// bytes.
    void* pixels;
    /// Set to bounds of the values that 16-bit elements held, with 2 bytes per pixel: none lies beyond.
    int least;
    int greatest;
};

}  // namespace dvq::kelt4
