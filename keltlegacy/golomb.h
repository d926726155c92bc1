#pragma once

#include <cstdint>

namespace keltlegacy {

inline constexpr int kGolombParameterBits = 5;
inline constexpr int kLargestGolombParameter = 24;

/// The parameter k of the run-length code, with runs in groups of 2^k, for a stream in which `significant` of
/// `candidates` coefficients become significant. Never 1.
int golombParameter(uint64_t significant, uint64_t candidates);

}  // namespace keltlegacy
