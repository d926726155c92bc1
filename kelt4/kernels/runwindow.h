#pragma once

#include <cstdint>

namespace dvq::kelt4::kernels {

/// The code of a few significance bits at once, for bits that follow directly upon a 1.
struct RunWindow {
    /// Run codes up to the last 1, with zeros where the signs belong.
    uint32_t code;
    uint32_t signMask;
    uint8_t length;
    /// Bits covered: up to and with the last 1; 0 for a window without any.
    uint8_t consumed;
    uint8_t ones;
};

/// One entry per value of the next kBits significance bits.
struct RunWindows {
    static constexpr unsigned kBits = 8;
    static constexpr unsigned kCount = 1U << kBits;

    RunWindow entries[kCount] = {};

    constexpr RunWindows() {
        for (unsigned value = 0; value < kCount; ++value)
            entries[value] = describe(value);
    }

private:
    static constexpr RunWindow describe(unsigned value) {
        RunWindow window{};
        unsigned run = 0;
        for (unsigned i = 0; i < kBits; ++i) {
            if ((value >> i & 1) == 0) {
                ++run;
                continue;
            }
            unsigned log = 0;
            while (run >> log > 1)
                ++log;
            const unsigned length = run == 0 ? 1 : 2 + 2 * log;
            const unsigned code = run == 0 ? 1 : 1U << (1 + log) | (run ^ 1U << log) << (2 + log);
            window.code |= code << window.length;
            window.length = static_cast<uint8_t>(window.length + length);
            window.signMask |= 1U << window.length++;
            window.consumed = static_cast<uint8_t>(i + 1);
            ++window.ones;
            run = 0;
        }
        return window;
    }
};

inline constexpr RunWindows kRunWindows;

}  // namespace dvq::kelt4::kernels
