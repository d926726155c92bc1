#include "vintakd/pool/PoolMetrics.h"

#include <algorithm>
#include <ctime>

#include "hsutils/Utils.h"
#include "vintakd/pool/oomkills.h"
#include "vintakd/pool/prometheustext.h"

namespace {

/// What became of the request that a servant had in its hands when it ended.
RequestRecord recordOf(const ServantReport& report, DeathReason reason, std::string story) {
    RequestRecord record;
    record.kind = report.kind;
    record.object = report.printable();
    record.duration = nanoTime() - report.busySince;
    RequestResult result = RequestResult::died;
    ErrorClass what = ErrorClass::crash;
    if (reason == DeathReason::clientGone) {
        result = RequestResult::lost;
        what = ErrorClass::exchange;
    } else if (reason == DeathReason::deadline || reason == DeathReason::processorTime) {
        what = ErrorClass::limit;
    } else if (reason == DeathReason::memory) {
        what = ErrorClass::memory;
    }
    record.fail(result, what, std::move(story));
    return record;
}

}  // namespace

PoolMetrics::PoolMetrics() : m_oomKills(oomKills()) {
    counters().startTime = std::time(nullptr);
}

DeathReason PoolMetrics::reasonOf(const ServantDeath& death) {
    if (death.killedAs) return *death.killedAs;
    if (death.how.si_code == CLD_EXITED) return DeathReason::exit;
    switch (death.how.si_status) {
        case SIGXCPU:
            return DeathReason::processorTime;
        case SIGSYS:
            return DeathReason::systemCall;
        case SIGKILL: {
            const auto before = m_oomKills;
            m_oomKills = oomKills();
            return before && m_oomKills && *m_oomKills > *before ? DeathReason::memory : DeathReason::killed;
        }
        default:
            return DeathReason::signal;
    }
}

void PoolMetrics::onDeath(const ServantDeath& death, ServantReport& report, size_t channel,
                          const ServantLimits& limits) {
    const DeathReason reason = reasonOf(death);
    ++counters().deaths[static_cast<size_t>(reason)];
    counters().lastDeaths[static_cast<size_t>(reason)] = std::time(nullptr);
    // What the servant wrote is held against what there can be: it may have written anything.
    if (static_cast<size_t>(report.kind.load()) >= kRequestKinds) report.kind = RequestKind::unread;
    if (report.busySince > 0)
        accountRequest(counters(), recordOf(report, reason, describeServantDeath(death, report, limits)),
                       report.number, channel);
}

void PoolMetrics::writeIfDue(const ServantReports& reports, const std::vector<bool>& ready) {
    if (!m_file.isDue()) return;
    PoolGauges gauges;
    gauges.now = std::time(nullptr);
    gauges.nanoNow = nanoTime();
    gauges.version = VINTAKD_VERSION;
    for (size_t i = 0; i < ready.size(); ++i) {
        const int64_t busySince = reports[i].busySince;
        // A nanosecond at least: 0 stands for no request.
        const int64_t busy = busySince > 0 ? std::max<int64_t>(gauges.nanoNow - busySince, 1) : 0;
        gauges.servants.push_back({ready[i], nanoToSec(busy)});
    }
    m_file.write(prometheusText(counters(), gauges));
}
