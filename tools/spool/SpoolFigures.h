#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "hsutils/errorclass.h"

/// What the feeder counts. Written for Prometheus into "vintakd-spool.prom"; docs/monitoring.md says what
/// each means.
struct SpoolFigures {
    // as it is now
    size_t waiting = 0;
    size_t working = 0;
    size_t parked = 0;
    double oldestSeconds = 0;
    bool paused = false;
    // since the start
    double startTime = 0;
    uint64_t done = 0;
    uint64_t warned = 0;
    std::array<uint64_t, kErrorClasses> failed{};
    uint64_t retries = 0;
    uint64_t pauses = 0;
    double lagSeconds = 0;  ///< sum over objects that were done, from arrival to results

    std::string text(double now) const;
};
