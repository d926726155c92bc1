#pragma once

#include <limits>

#include "vintakd/config/LimitValues.h"

/// What one servant process may use, and how that is laid upon it.
struct ServantLimits : LimitValues {
    ServantLimits() = default;
    explicit ServantLimits(const LimitValues& values) : LimitValues(values) {}

    /// No limit at all.
    static ServantLimits none() { return ServantLimits(unlimited()); }

    /// Sets the limits of the calling process; a system's own lower hard limits stay. Throws
    /// std::runtime_error.
    void apply() const;

    static constexpr uint64_t kNoEnd = std::numeric_limits<uint64_t>::max();

    /// Allows the calling process cpuSeconds of processor time from now on. Returns the second of its
    /// processor time at which they end.
    uint64_t allowRequest() const;

    /// Allows it frameCpuSeconds from now on, but none beyond the request's end. Returns whether it is the
    /// frame's limit that will be hit first.
    bool allowFrame(uint64_t requestEnd) const;
};
