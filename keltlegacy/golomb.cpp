#include "keltlegacy/golomb.h"

#include <cmath>

namespace keltlegacy {

int golombParameter(uint64_t significant, uint64_t candidates) {
    constexpr int kSparse = 2;
    if (significant == 0 || candidates == 0) return kSparse;
    const double ratio = static_cast<double>(significant) / static_cast<double>(candidates);
    if (ratio > 0.21384) return 0;
    if (ratio > 0.11385) return 2;
    if (ratio > 0.05838) return 3;
    const double groupSize = std::floor(0.48 / ratio + 0.5);
    if (groupSize < 5) return kSparse;
    int k = 3;
    while (k < kLargestGolombParameter && static_cast<double>(uint64_t{1} << k) < groupSize)
        ++k;
    return k;
}

}  // namespace keltlegacy
