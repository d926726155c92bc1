#pragma once

#include <cstdint>

#include "kelt4/kernels/attributes.h"

namespace dvq::kelt4::kernels {

/// The code of a few significance bits at once, for bits that follow directly upon a 1. One word, so that a
/// window costs one load.
struct RunWindow {
    uint64_t packed;

    /// Run codes up to the last 1, with zeros where the signs belong.
    KELT_INLINE constexpr uint64_t code() const { return packed & 0xFFFFFF; }
    KELT_INLINE constexpr uint64_t signMask() const { return packed >> 24 & 0xFFFFFF; }
    KELT_INLINE constexpr unsigned length() const { return packed >> 48 & 31; }
    /// Bits covered: up to and with the last 1; 0 for a window without any.
    KELT_INLINE constexpr unsigned consumed() const { return packed >> 53 & 15; }
    KELT_INLINE constexpr unsigned ones() const { return static_cast<unsigned>(packed >> 57); }
};

/// One entry per value of the next kBits significance bits. Ten bits: the table stays in the first-level
/// cache.
struct RunWindows {
    static constexpr unsigned kBits = 10;
    static constexpr unsigned kCount = 1U << kBits;

    RunWindow entries[kCount] = {};

    constexpr RunWindows() {
        for (unsigned value = 0; value < kCount; ++value)
            entries[value] = describe(value);
    }

private:
    static constexpr RunWindow describe(unsigned value) {
        uint64_t code = 0, signMask = 0, length = 0, consumed = 0, ones = 0, run = 0;
        for (unsigned i = 0; i < kBits; ++i) {
            if ((value >> i & 1) == 0) {
                ++run;
                continue;
            }
            unsigned log = 0;
            while (run >> log > 1)
                ++log;
            code |= (run == 0 ? 1 : uint64_t{1} << (1 + log) | (run ^ uint64_t{1} << log) << (2 + log))
                    << length;
            length += run == 0 ? 1 : 2 + 2 * log;
            signMask |= uint64_t{1} << length++;
            consumed = i + 1;
            ++ones;
            run = 0;
        }
        return {code | signMask << 24 | length << 48 | consumed << 53 | ones << 57};
    }
};

inline constexpr RunWindows kRunWindows;

}  // namespace dvq::kelt4::kernels
