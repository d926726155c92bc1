#pragma once

#include <limits>

/// The integer part of `value`; what 32 bits cannot hold becomes the smallest integer, as the processor has
/// it.
inline int truncated(double value) {
    constexpr double kLimit = 2147483648.0;
    if (!(value > -kLimit - 1.0 && value < kLimit)) return std::numeric_limits<int>::min();
    return static_cast<int>(value);
}
