// How the pool's servants end: by themselves, by somebody else's hand, or by the supervisor's because of
// their request.

#include <signal.h>
#include <sys/wait.h>

#include <atomic>

#include "vintakd/ipc/QXLogger.h"
#include "vintakd/ipc/processes.h"
#include "vintakd/ipc/trace.h"
#include "vintakd/pool/ServantPool.h"
#include "vintakd/pool/servantdeath.h"

#define TRACE_THIS(text) TRACE_OBJECT("     GatewaySupervisor[", this, text)
#define TRACE_SLOT(index, text) TRACE_CHANNEL(index, "GatewaySupervisor", this, text)

// A dead child is looked at first and reaped last: until then its pid cannot belong to anybody else, so that
// a client that still reads it in the table kills nobody.
void ServantPool::reapDead() {
    for (;;) {
        siginfo_t death{};
        if (waitid(P_ALL, 0, &death, WEXITED | WNOHANG | WNOWAIT) != 0 || death.si_pid == 0) return;
        size_t index = 0;
        while (index < m_slots.size() && m_slots[index].pid != death.si_pid)
            ++index;
        if (index == m_slots.size()) {
            TRACE_THIS("supervise(): chIndex is not modified!");
            waitpid(death.si_pid, nullptr, 0);
            continue;
        }
        onServantDeath(index, death);
    }
}

void ServantPool::forgetServant(size_t index) {
    withTable([&] { entry(index).servantPid = 0; });
}

rusage ServantPool::reapServant(size_t index) {
    rusage used{};
    wait4(m_slots[index].pid, nullptr, 0, &used);
    m_slots[index].pid = 0;
    return used;
}

void ServantPool::onServantDeath(size_t index, const siginfo_t& death) {
    const pid_t pid = death.si_pid;
    readReadyReports();  // it may have become ready and died since
    const bool wasReady = m_slots[index].ready;
    forgetServant(index);
    const rusage used = reapServant(index);

    OFLogger logger = GetQXLogger();
    OFLOG_INFO(logger, "Servant " << pid << " exited for channel (" << index << ") respawning");
    const bool retired = (getChannel(index).status() & ipc::Channel::kStatusRenew) != 0;
    getChannel(index).clearStatus(ipc::Channel::kStatusRenew);
    const bool renewed = retired && death.si_code == CLD_EXITED && death.si_status == 0;
    if (renewed) {
        OFLOG_INFO(logger, "Purging channel after renewed servant " << pid << " (" << index << ")");
        TRACE_SLOT(index, "supervise(): servant (" << pid << ") renew");
    } else {
        OFLOG_INFO(logger, "Purging channel affter crash/kill of servant " << pid << " (" << index << ")");
        TRACE_SLOT(index, "supervise(): servant (" << pid << ") crashed");
    }
    const ServantDeath story = m_slots[index].describe(death, used);
    logDeath(index, story);
    if (renewed)
        ++m_metrics.counters().renewals;
    else
        m_metrics.onDeath(story, m_reports[index], index, m_limits);
    markIdle(m_reports[index], m_metrics.counters());
    ServantSlot& slot = m_slots[index];
    slot.failedStarts = wasReady ? 0 : slot.failedStarts + 1;
    if (purgeChannel(index)) startOrPostpone(index);
}

void ServantPool::logDeath(size_t index, const ServantDeath& death) {
    OFLOG_INFO(GetQXLogger(), "Servant " << death.how.si_pid << " (" << index << ") "
                                         << describeServantDeath(death, m_reports[index], m_limits));
}

// A servant cannot be asked while it works, so what it wrote down when the request came is looked at.
void ServantPool::watchRequests() {
    for (size_t i = 0; i < m_slots.size(); ++i) {
        ServantSlot& slot = m_slots[i];
        const int64_t busySince = m_reports[i].busySince;
        if (slot.pid <= 0 || !slot.ready || !slot.killedFor.empty()) continue;
        const bool idle = busySince <= 0 && std::atomic_ref(entry(i).state).load() == ChannelState::free;
        if (slot.isToEnd(busySince, !idle && clientIsGone(i), m_limits)) kill(slot.pid, SIGKILL);
    }
}

// Clients purge a channel that is silent for longer than its time-out. One without a time-out is nobody's but
// ours when its client dies.
bool ServantPool::clientIsGone(size_t index) {
    const ChannelState state = std::atomic_ref(entry(index).state).load();
    if (state == ChannelState::free) return true;
    return state == ChannelState::connected && getChannel(index).getTimeout().milliseconds() <= 0 &&
           !processLives(std::atomic_ref(entry(index).clientPid).load());
}
