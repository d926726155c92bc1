#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vintakd/pool/MetricsFile.h"
#include "vintakd/pool/PoolCounters.h"
#include "vintakd/pool/servantdeath.h"
#include "vintakd/pool/servantduty.h"

/// The supervisor's side of the figures: what it counts itself, and the file that it writes them all into. To
/// be made before the servants are forked, who share the counters.
class PoolMetrics {
public:
    PoolMetrics();

    PoolCounters& counters() { return m_counters[0]; }
    /// From now on the figures go into the file at `path`, which is removed with the object.
    void setFile(std::string path) { m_file.setPath(std::move(path)); }

    /// A servant has ended, not for the daemon's sake. Counts it, and the request that it had in its hands,
    /// which gets its line in the log.
    void onDeath(const ServantDeath& death, ServantReport& report, size_t channel,
                 const ServantLimits& limits);

    /// Writes the file when it is time to. `ready` says of each servant whether it is.
    void writeIfDue(const ServantReports& reports, const std::vector<bool>& ready);

private:
    DeathReason reasonOf(const ServantDeath& death);

    SharedArray<PoolCounters> m_counters{1, "the counters"};
    std::optional<uint64_t> m_oomKills;
    MetricsFile m_file;
};
