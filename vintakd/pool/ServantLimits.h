#pragma once

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

    /// Allows the calling process cpuSeconds of processor time from now on.
    void allowRequest() const;
};
