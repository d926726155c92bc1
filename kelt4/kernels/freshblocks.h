#pragma once

#include <cstddef>
#include <cstdint>

#include "kelt4/kernels/attributes.h"
#include "kelt4/rowbuffers.h"

namespace dvq::kelt4::kernels {

inline constexpr size_t kBatchBlocks = kLargestBatch / kBlock;

/// The blocks of a batch that are not all zeros, and what is known of them between the planes.
struct BatchBlocks {
    size_t count;
    uint64_t signs[kBatchBlocks];
    /// Coefficients of blocks that are left out, before each block.
    uint64_t omitted[kBatchBlocks];
    /// Coefficients significant in the planes done.
    uint64_t above[kBatchBlocks];
};

/// The blocks in which coefficients become significant in a plane. Room for a vector after the last one.
struct FreshBlocks {
    static constexpr size_t kRoom = kBatchBlocks + 8;

    size_t count;
    /// These coefficients, and all that were not significant before.
    uint64_t bits[kRoom];
    uint64_t candidates[kRoom];
    uint64_t signs[kRoom];
    /// Candidates in the blocks before.
    uint64_t first[kRoom];
};

/// Finds them by the column of a plane, updates what is significant, and returns the number of candidates in
/// all blocks.
template <class Arch>
uint64_t findFresh(const uint64_t* column, BatchBlocks& blocks, FreshBlocks& fresh) {
    size_t used = 0;
    uint64_t before = 0;
    for (size_t b = 0; b < blocks.count; ++b) {
        const uint64_t above = blocks.above[b], bits = column[b] & ~above;
        blocks.above[b] = above | column[b];
        fresh.bits[used] = bits;
        fresh.candidates[used] = ~above;
        fresh.signs[used] = blocks.signs[b];
        fresh.first[used] = before + blocks.omitted[b];
        used += bits != 0 ? 1 : 0;
        before += kBlock - static_cast<unsigned>(__builtin_popcountll(above));
    }
    fresh.count = used;
    return before;
}

}  // namespace dvq::kelt4::kernels
