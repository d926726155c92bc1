#pragma once

#include <cstdint>

// Shifts by counts that come from a header. Like the processor's, a count is taken modulo 32, so that a
// negative one clears a mask of 16 bits instead of being undefined.

constexpr std::uint32_t shiftedRight(std::uint32_t value, int count) {
    return value >> (static_cast<unsigned int>(count) & 31U);
}

constexpr std::uint32_t shiftedLeft(std::uint32_t value, int count) {
    return value << (static_cast<unsigned int>(count) & 31U);
}
