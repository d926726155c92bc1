#pragma once

#include <cstdint>

namespace dvq::kelt4 {

/// The reversible 5/3 lifting step on samples of type T. Both roundings go away from zero at halves.
template <class T>
class CFilter5_3 {
public:
    /// a / 2
    static int32_t roundHalf(int32_t a) { return a >= 0 ? (a + 1) >> 1 : a >> 1; }
    /// a / 4
    static int32_t roundQuarter(int32_t a) { return a >= 0 ? (a + 2) >> 2 : (a + 1) >> 2; }

    /// Lifts count samples that lie step elements apart, in place: odd positions become details, even
    /// positions approximations. A single sample stays as it is.
    static void lift(T* x, int64_t count, int64_t step) {
        if (count < 2) return;
        const auto at = [&](int64_t i) -> T& { return x[i * step]; };
        for (int64_t i = 1; i < count; i += 2) {
            const int32_t sum = at(i - 1) + (i + 1 < count ? at(i + 1) : at(i - 1));
            at(i) = static_cast<T>(at(i) - roundHalf(sum));
        }
        for (int64_t i = 0; i < count; i += 2) {
            const int32_t right = i + 1 < count ? at(i + 1) : at(i - 1);
            const int32_t left = i > 0 ? at(i - 1) : right;
            at(i) = static_cast<T>(at(i) + roundQuarter(left + right));
        }
    }
};

}  // namespace dvq::kelt4
