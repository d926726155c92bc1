#pragma once

#include <cstdint>

#include "kelt4/kernels/attributes.h"

namespace dvq::kelt4::kernels {

/// What the next bits of a significance chunk say: the runs and signs that lie in them whole, as bits of
/// coefficients.
struct EventWindow {
    uint64_t packed;

    /// One bit for each coefficient: becoming significant, and negative.
    KELT_INLINE constexpr uint64_t ones() const { return packed >> 48; }
    KELT_INLINE constexpr uint64_t signs() const { return packed >> 32 & 0xFFFF; }
    /// Coefficients covered, at most EventWindows::kMaxSpan; 0 when not even the first run lies in the bits
    /// whole or it is too long.
    KELT_INLINE constexpr unsigned span() const { return packed >> 8 & 0xFF; }
    /// How many ones there are.
    KELT_INLINE constexpr unsigned count() const { return packed >> 16 & 0xFF; }
    /// At the low end, where it counts a shift as it stands.
    KELT_INLINE constexpr unsigned bits() const { return packed & 0xFF; }
};

/// One entry per value of the next kBits bits.
struct EventWindows {
    static constexpr unsigned kBits = 10;
    static constexpr unsigned kCount = 1U << kBits;
    /// Four windows and a few candidates before them make one word.
    static constexpr unsigned kMaxSpan = 14;

    EventWindow entries[kCount] = {};

    constexpr EventWindows() {
        for (unsigned value = 0; value < kCount; ++value)
            entries[value] = describe(value);
    }

private:
    static constexpr EventWindow describe(unsigned value) {
        uint64_t ones = 0, signs = 0, count = 0, span = 0, bits = 0;
        for (;;) {
            unsigned zeros = 0;
            while (bits + zeros < kBits && (value >> (bits + zeros) & 1) == 0)
                ++zeros;
            const uint64_t length = zeros == 0 ? 1 : 2 * zeros;
            if (bits + length + 1 > kBits) break;
            const uint64_t top = (uint64_t{1} << zeros) >> 1;
            const uint64_t run = zeros == 0 ? 0 : top | (value >> (bits + zeros + 1) & (top - 1));
            if (span + run + 1 > kMaxSpan) break;
            span += run;
            ones |= uint64_t{1} << span;
            signs |= static_cast<uint64_t>(value >> (bits + length) & 1) << span;
            ++span;
            ++count;
            bits += length + 1;
        }
        return {bits | span << 8 | count << 16 | signs << 32 | ones << 48};
    }
};

inline constexpr EventWindows kEventWindows;

}  // namespace dvq::kelt4::kernels
