#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <sstream>

#include "hsutils/Utils.h"
#include "vintakd/ipc/QXLogger.h"
#include "vintakd/ipc/processes.h"
#include "vintakd/ipc/trace.h"
#include "vintakd/pool/ServantPool.h"

// How servants end: by themselves, by somebody else's hand, or by the supervisor's because of their request.

#define TRACE_THIS(text) TRACE_OBJECT("     GatewaySupervisor[", this, text)
#define TRACE_SLOT(index, text) TRACE_CHANNEL(index, "GatewaySupervisor", this, text)

namespace {

constexpr std::chrono::seconds kWorkForNobody{5};

std::string seconds(double value) {
    std::ostringstream text;
    text.setf(std::ios::fixed);
    text.precision(3);
    text << value << " s";
    return text.str();
}

double toSeconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

/// The limit that the way a servant ended speaks of; empty for none.
std::string limitBehind(const siginfo_t& death, const ServantLimits& limits) {
    if (death.si_code == CLD_EXITED) return "";
    if (death.si_status == SIGXCPU)
        return "the limit of " + std::to_string(limits.cpuSeconds) +
               " s of processor time for a request was hit";
    if (death.si_status == SIGSYS) return "it made a system call that servants have given up";
    return "";
}

}  // namespace

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
    if (retired && death.si_code == CLD_EXITED && death.si_status == 0) {
        OFLOG_INFO(logger, "Purging channel after renewed servant " << pid << " (" << index << ")");
        TRACE_SLOT(index, "supervise(): servant (" << pid << ") renew");
    } else {
        OFLOG_INFO(logger, "Purging channel affter crash/kill of servant " << pid << " (" << index << ")");
        TRACE_SLOT(index, "supervise(): servant (" << pid << ") crashed");
    }
    logDeath(index, death, used);
    Slot& slot = m_slots[index];
    slot.failedStarts = wasReady ? 0 : slot.failedStarts + 1;
    if (purgeChannel(index)) startOrPostpone(index);
}

// The whole story of a servant in one line: what it was doing, what ended it, after how long.
void ServantPool::logDeath(size_t index, const siginfo_t& death, const rusage& used) {
    const Slot& slot = m_slots[index];
    const ServantReport& report = m_reports[index];
    const int64_t busySince = report.busySince;
    const bool withDaemon = slot.stopped && death.si_code == CLD_KILLED && death.si_status == SIGINT;
    std::string text = (withDaemon ? "ended with the daemon" : describeDeath(death)) + " after " +
                       seconds(std::chrono::duration<double>(Clock::now() - slot.startedAt).count());
    if (busySince > 0) {
        const std::string request = report.printable();
        text += ", " + seconds(nanoToSec(nanoTime() - busySince)) + " into " +
                (request.empty() ? "a request that it had not looked at" : "serving " + request);
    } else {
        text += ", idle";
    }
    const std::string limit = slot.killedFor.empty() ? limitBehind(death, m_limits) : slot.killedFor;
    if (!limit.empty()) text += "; " + limit;
    OFLOG_INFO(GetQXLogger(), "Servant " << death.si_pid << " (" << index << ") " << text << "; it used "
                                         << seconds(toSeconds(used.ru_utime) + toSeconds(used.ru_stime))
                                         << " of processor time and " << used.ru_maxrss / 1024
                                         << " MiB of memory");
}

// A servant cannot be asked while it works, so what it wrote down when the request came is looked at.
void ServantPool::watchRequests() {
    for (size_t i = 0; i < m_slots.size(); ++i) {
        Slot& slot = m_slots[i];
        const int64_t busySince = m_reports[i].busySince;
        if (slot.pid <= 0 || !slot.ready || !slot.killedFor.empty()) continue;
        const bool idle = busySince <= 0 && std::atomic_ref(entry(i).state).load() == ChannelState::free;
        if (idle || !clientIsGone(i)) {
            slot.clientGoneSince.reset();
        } else if (!slot.clientGoneSince) {
            slot.clientGoneSince = Clock::now();
        }
        if (busySince > 0 && m_limits.deadlineSeconds != 0 &&
            nanoToSec(nanoTime() - busySince) > static_cast<double>(m_limits.deadlineSeconds)) {
            endServantFor(i, "the deadline of " + std::to_string(m_limits.deadlineSeconds) +
                                 " s for a request was hit");
        } else if (slot.clientGoneSince && Clock::now() - *slot.clientGoneSince > kWorkForNobody) {
            endServantFor(i, "its client had gone");
        }
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

void ServantPool::endServantFor(size_t index, const std::string& reason) {
    m_slots[index].killedFor = reason;
    kill(m_slots[index].pid, SIGKILL);
}
