#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vintakd/pool/PoolCounters.h"

/// What a channel's servant is doing.
struct ServantGauge {
    bool ready = false;
    double busySeconds = 0;  ///< with the request in its hands; 0: none
};

/// What is true at the moment, beside what is counted.
struct PoolGauges {
    std::vector<ServantGauge> servants;
    int64_t now = 0;      ///< seconds since 1970
    int64_t nanoNow = 0;  ///< nanoTime()
    std::string version;
};

/// The pool in the text format of Prometheus: every series there is, with HELP and TYPE. No label holds
/// anything of an object or a path.
std::string prometheusText(const PoolCounters& counters, const PoolGauges& gauges);
