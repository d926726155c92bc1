#pragma once

#include <cstdint>

#include "kelt4/kernel_jobs.h"
#include "kelt4/kernels/attributes.h"

namespace dvq::kelt4::kernels {

/// One bit for each of the next candidates of a significance chunk: becoming significant, and negative.
struct CandidateBits {
    /// Candidates that may be wanted at once. The last codes for them may bring up to 64 more.
    static constexpr uint64_t kMaxWanted = 64 * kGroupWords;
    /// Room for those, and for reading and writing a word beyond them.
    static constexpr uint64_t kWords = kMaxWanted / 64 + 3;

    uint64_t ones[kWords];
    uint64_t signs[kWords];

    void clear(uint64_t candidates) {
        const size_t bytes = (candidates / 64 + 3) * sizeof(uint64_t);
        __builtin_memset(ones, 0, bytes);
        __builtin_memset(signs, 0, bytes);
    }

    /// Makes a candidate significant.
    KELT_INLINE void append(uint64_t candidate, bool negative) {
        ones[candidate / 64] |= uint64_t{1} << (candidate % 64);
        signs[candidate / 64] |= uint64_t{negative} << (candidate % 64);
    }

    /// Writes the bits of 64 candidates, of which the first is a multiple of 8.
    KELT_INLINE void store(uint64_t candidate, uint64_t onesThere, uint64_t signsThere) {
        __builtin_memcpy(reinterpret_cast<uint8_t*>(ones) + candidate / 8, &onesThere, sizeof(onesThere));
        __builtin_memcpy(reinterpret_cast<uint8_t*>(signs) + candidate / 8, &signsThere, sizeof(signsThere));
    }
    KELT_INLINE static uint8_t byte(const uint64_t* words, uint64_t candidate) {
        return reinterpret_cast<const uint8_t*>(words)[candidate / 8];
    }

    /// The bits of 64 candidates from the given one on.
    KELT_INLINE static uint64_t at(const uint64_t* words, uint64_t candidate) {
        const uint64_t* const word = words + candidate / 64;
        return word[0] >> (candidate % 64) | word[1] << 1 << (63 - candidate % 64);
    }
};

}  // namespace dvq::kelt4::kernels
