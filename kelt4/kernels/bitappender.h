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

    /// Appends count (0 to 64) bits; those above must be 0. By masks: a choice would become a branch, which is
    /// guessed wrong every few times.
    KELT_INLINE void append(uint64_t bits, uint64_t count) {
        const uint64_t shifted = bits << pending;
        *current = accumulator | shifted;
        const uint64_t total = pending + count;
        const uint64_t full = total >> 6;
        const uint64_t kept = full - 1;
        // What does not fit is 0 unless the word is full.
        const uint64_t rest = (shifted & kept) | bits >> 1 >> (~pending & 63);
        accumulator = (accumulator & kept) | rest;
        current += full;
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
