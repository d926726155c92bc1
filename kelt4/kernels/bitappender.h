#pragma once

#include <cstdint>

#include "kelt4/chunkstore.h"
#include "kelt4/kernels/attributes.h"

namespace dvq::kelt4::kernels {

/// Appends bits to words without a branch: what follows on each other in a batch is of every length. One word
/// is written beyond the last whole one.
struct BitAppender {
    uint64_t* current;
    uint64_t accumulator;
    /// Bits in the accumulator, 0 to 63.
    uint64_t pending;

    /// Appends count (0 to 64) bits; those above must be 0.
    KELT_INLINE void append(uint64_t bits, uint64_t count) {
        const uint64_t merged = accumulator | bits << pending;
        const uint64_t rest = bits >> 1 >> (~pending & 63);
        *current = merged;
        const uint64_t total = pending + count;
        accumulator = total >= 64 ? rest : merged;
        current += total >> 6;
        pending = total & 63;
    }

    KELT_INLINE static BitAppender of(const BitSink& sink) {
        return {sink.current, sink.accumulator, sink.pending};
    }
    KELT_INLINE void giveBack(BitSink& sink) const {
        sink.current = current;
        sink.accumulator = accumulator;
        sink.pending = static_cast<unsigned>(pending);
    }
};

}  // namespace dvq::kelt4::kernels
