#pragma once

#include <cstdint>

#include "kelt4/kernel_jobs.h"
#include "kelt4/kernels/attributes.h"

namespace dvq::kelt4::kernels {

/// Reads bits of a stream at any position; beyond its end there are zeros, which callers tell by the
/// position.
template <class Arch>
struct BitSource {
    /// Zeros that the code of a run may begin with: no class has 2^33 coefficients.
    static constexpr unsigned kMaxZeros = 33;

    BitSpan bits;
    uint64_t position;

    /// Bits that must be there for peekFast().
    static constexpr uint64_t kFastBits = 8 * 16;

    /// The next 64 bits.
    KELT_INLINE uint64_t peekFast() const {
        uint64_t value = 0;
        const uint8_t* const from = bits.bytes + position / 8;
        __builtin_memcpy(&value, from, sizeof(value));
        return value >> (position % 8) | static_cast<uint64_t>(from[8]) << 1 << (63 - position % 8);
    }

    /// The next bits, at least 57 of them.
    KELT_INLINE uint64_t peek() const { return peekAt(position); }

    /// The next count (at most 64) bits.
    KELT_INLINE uint64_t read(unsigned count) {
        uint64_t value = peek();
        if (count > 56) value = (value & 0xFFFFFFFF) | peekAt(position + 32) << 32;
        position += count;
        return count < 64 ? value & ((uint64_t{1} << count) - 1) : value;
    }

    /// Decodes the code of a run; false when it begins with more zeros than any run has.
    KELT_INLINE bool readRun(uint64_t& run) {
        const uint64_t next = peek();
        const auto zeros = static_cast<unsigned>(__builtin_ctzll(next | uint64_t{1} << 63));
        if (zeros <= 28) {
            // 2^(zeros - 1) and the bits below it; 0 for no zeros at all.
            const uint64_t top = (uint64_t{1} << zeros) >> 1;
            run = top | (next >> zeros >> 1 & (top - (zeros != 0)));
            position += zeros == 0 ? 1 : 2 * zeros;
            return true;
        }
        if (zeros > kMaxZeros) return false;
        position += zeros + 1;
        run = uint64_t{1} << (zeros - 1) | read(zeros - 1);
        return true;
    }

private:
    KELT_INLINE uint64_t peekAt(uint64_t at) const {
        const uint64_t first = at / 8;
        const uint64_t size = (bits.end + 7) / 8;
        uint64_t value = 0;
        if (first + 8 <= size) {
            __builtin_memcpy(&value, bits.bytes + first, 8);
        } else {
            for (uint64_t i = first; i < size; ++i)
                value |= static_cast<uint64_t>(bits.bytes[i]) << (8 * (i - first));
        }
        return value >> (at % 8);
    }
};

}  // namespace dvq::kelt4::kernels
