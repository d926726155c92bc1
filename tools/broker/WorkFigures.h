#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "hsutils/errorclass.h"

/// What a worker counts. Written for Prometheus into "vintakd-work.prom"; docs/monitoring.md says what each
/// means.
struct WorkFigures {
    // as it is now
    size_t waiting = 0;
    size_t working = 0;
    bool connected = false;
    bool paused = false;
    // since the start
    double startTime = 0;
    uint64_t done = 0;
    uint64_t warned = 0;
    std::array<uint64_t, kErrorClasses> failed{};
    uint64_t retries = 0;
    uint64_t returned = 0;
    uint64_t losses = 0;
    double seconds = 0;  ///< sum over jobs that were done

    std::string text(double now) const;
};
