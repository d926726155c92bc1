#pragma once

#include <cstdint>

#include "kelt4/geometry.h"

namespace dvq::kelt4::kernels {

namespace {

/// Watches whether 16-bit lanes hold what the transform of a frame forms, where the samples alone do not
/// tell.
///
/// Let the values of a level, before it is lifted, lie from `least` to `greatest`, R apart. Half the sum of
/// two neighbours lies there too, so that details along x have at most R, and approximations along x exceed
/// the range by at most (R + 1) / 2. Details along y of both then have at most 2 R + 1. With R and the
/// approximations below 2^14 all of this and the sums that it is made of fit. The update along y adds two
/// details to be quartered: they are coefficients, of which the coder tells the greatest. What it makes is
/// the next level, or a coefficient.
///
/// Levels before the first that does not fit are right, so that it is not missed for what has gone wrong in
/// it.
struct LaneGuard {
    /// Two of these, and the 2 that rounding adds, fit.
    static constexpr int kLimit = (32767 - 2) / 2;

    bool on = false;
    bool outgrown = false;
    int least[kMaxClasses] = {};
    int greatest[kMaxClasses] = {};

    /// A row of a level before it is lifted; level 0 is known by its samples.
    template <class T>
    void addRow(int level, const T* row, int count) {
        T low = row[0], high = row[0];
        for (int i = 1; i < count; ++i) {
            low = row[i] < low ? row[i] : low;
            high = row[i] > high ? row[i] : high;
        }
        if (low < least[level]) least[level] = low;
        if (high > greatest[level]) greatest[level] = high;
        const int range = greatest[level] - least[level], excess = (range + 1) / 2;
        if (range > kLimit || greatest[level] + excess > kLimit || least[level] - excess < -kLimit)
            outgrown = true;
    }
    /// The greatest magnitude of some coefficients.
    void addDetails(uint32_t magnitude) {
        if (on && magnitude > kLimit) outgrown = true;
    }
};

}  // namespace

}  // namespace dvq::kelt4::kernels
