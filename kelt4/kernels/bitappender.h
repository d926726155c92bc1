#pragma once

#include <cstdint>

#include "kelt4/chunkstore.h"
#include "kelt4/kernels/attributes.h"

namespace dvq::kelt4::kernels {

/// Appends pieces of up to 64 bits to words without a branch: what follows on each other in a batch is of
/// every length, and a branch on a full word is guessed wrong every few times. One word is written beyond the
/// last whole one. For kernels of x86-64.
struct BitAppender {
    uint64_t* current;
    uint64_t accumulator;
    /// Bits in the accumulator, 0 to 63.
    uint64_t pending;

    KELT_INLINE static BitAppender of(const BitSink& sink) {
        return {sink.current, sink.accumulator, sink.pending};
    }
    KELT_INLINE void giveBack(BitSink& sink) const {
        sink.current = current;
        sink.accumulator = accumulator;
        sink.pending = static_cast<unsigned>(pending);
    }

    /// Appends count (0 to 64) bits; those above must be 0.
    KELT_INLINE void append(uint64_t bits, uint64_t count) {
        uint64_t merged = accumulator | bits << pending;
        const uint64_t rest = bits >> 1 >> (~pending & 63);
        *current = merged;
        const uint64_t total = pending + count;
        // merged = total >= 64 ? rest : merged, of which the compiler makes a branch.
        __asm__("cmpq $63, %[total]\n\tcmova %[rest], %[merged]"
                : [merged] "+r"(merged)
                : [total] "r"(total), [rest] "r"(rest)
                : "cc");
        accumulator = merged;
        current += total >> 6;
        pending = total & 63;
    }
};

/// The same for pieces of up to 56 bits, in fewer steps: whole bytes leave the accumulator at once.
struct CodeAppender {
    static constexpr uint64_t kMaxBits = 56;

    unsigned char* current;
    uint64_t accumulator;
    /// Bits in the accumulator, 0 to 7.
    uint64_t pending;

    KELT_INLINE static CodeAppender of(const BitSink& sink) {
        *sink.current = sink.accumulator;
        return {reinterpret_cast<unsigned char*>(sink.current) + sink.pending / 8,
                sink.accumulator >> (sink.pending & 56), sink.pending & 7};
    }
    KELT_INLINE void giveBack(BitSink& sink) const {
        __builtin_memcpy(current, &accumulator, sizeof(accumulator));
        const auto* const start = reinterpret_cast<unsigned char*>(sink.words);
        const uint64_t total = 8 * static_cast<uint64_t>(current - start) + pending;
        sink.current = sink.words + total / 64;
        sink.pending = total & 63;
        sink.accumulator = *sink.current & ((uint64_t{1} << sink.pending) - 1);
    }

    /// Appends count (0 to kMaxBits) bits; those above must be 0.
    KELT_INLINE void append(uint64_t bits, uint64_t count) {
        const uint64_t merged = accumulator | bits << pending;
        __builtin_memcpy(current, &merged, sizeof(merged));
        const uint64_t total = pending + count;
        accumulator = merged >> (total & 56);
        current += total >> 3;
        pending = total & 7;
    }
};

}  // namespace dvq::kelt4::kernels
