#pragma once

#include <cstddef>
#include <cstdint>

#include "kelt4/geometry.h"

/// Where the fast encoder collects the bits of every chunk. Plain structures: kernels work on them directly.
namespace dvq::kelt4 {

/// Bit planes that a coefficient's magnitude can reach: 16-bit samples grow by less than three bits in the
/// transform.
inline constexpr int kFastPlanes = 20;

/// A growing array of words with a bit count; bits enter least significant first.
struct BitSink {
    uint64_t* words;
    uint64_t* current;
    uint64_t* end;
    uint64_t accumulator;
    /// Bits in the accumulator, 0 to 63.
    unsigned pending;
};

inline uint64_t bitCount(const BitSink& sink) {
    return 64 * static_cast<uint64_t>(sink.current - sink.words) + sink.pending;
}

/// Words that a kernel may write after asking for room once per block of 64 coefficients.
inline constexpr ptrdiff_t kSinkRoom = 8;

/// Makes room for at least so many words; throws std::bad_alloc.
void growSink(BitSink& sink, size_t words);

/// The two chunks of one plane of one component and class.
struct PlaneChunks {
    BitSink significance;
    BitSink refinement;
    /// Coefficients whose highest bit is in this plane.
    uint64_t significant;
    /// The pending run of zeros is the number of coefficients seen by the class less this. So a plane that
    /// nothing happens in costs nothing.
    uint64_t passed;
};

struct ClassChunks {
    /// Coefficients seen so far.
    uint64_t seen;
    PlaneChunks planes[kFastPlanes];
};

/// All chunks of a frame. The memory of the bits is kept between frames.
class ChunkStore {
public:
    ChunkStore() = default;
    ~ChunkStore();
    ChunkStore(const ChunkStore&) = delete;
    ChunkStore& operator=(const ChunkStore&) = delete;

    /// Empties the chunks that a frame of so many components and levels has.
    void clear(int components, int levels);
    ClassChunks& at(int component, int levelClass) { return m_chunks[component][levelClass]; }
    const ClassChunks& at(int component, int levelClass) const { return m_chunks[component][levelClass]; }
    /// Bytes held for bits.
    size_t heldBytes() const;

private:
    template <class Visitor>
    void forEachSink(Visitor&& visit);

    ClassChunks m_chunks[kMaxComponents][kMaxClasses] = {};
};

}  // namespace dvq::kelt4
