#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "vintakd/ipc/QXLogger.h"
#include "vintakd/ipc/ipcexceptions.h"
#include "vintakd/ipc/processes.h"
#include "vintakd/pool/ServantPool.h"

// The end of the pool: its servants first, then the news for the clients that still wait.

namespace {

constexpr std::chrono::seconds kStopGrace{2};   // between SIGINT and SIGKILL
constexpr ipc::timeout kLockOfTheDead{10'000};  // nobody else may be left to free it

}  // namespace

void ServantPool::stopServers() {
    OFLOG_INFO(GetQXLogger(), "GatewaySupervisor::stopServer()");
    for (Slot& slot : m_slots) {
        if (slot.pid > 0) slot.stopped = kill(slot.pid, SIGINT) == 0;
    }
    const auto limit = Clock::now() + kStopGrace;
    for (const Slot& slot : m_slots) {
        if (slot.pid > 0) endServant(slot.pid, limit);
    }
    forgetServants();
    notifyWaitingClients();
}

// Waits for a servant that was asked to end, up to limit, then makes it end. It is not reaped.
void ServantPool::endServant(pid_t pid, Clock::time_point limit) {
    siginfo_t death{};
    while (waitid(P_PID, static_cast<id_t>(pid), &death, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           death.si_pid == 0) {
        if (Clock::now() >= limit) {
            kill(pid, SIGKILL);
            waitid(P_PID, static_cast<id_t>(pid), &death, WEXITED | WNOWAIT);
            return;
        }
        usleep(2000);
    }
}

// All servants are dead but not reaped: their pids leave the table before the system may give them to others.
void ServantPool::forgetServants() {
    if (!m_holdsTable) checkSpinLock(kLockOfTheDead);
    withTable([&] {
        for (size_t i = 0; i < m_slots.size(); ++i)
            entry(i).servantPid = 0;
    });
    for (size_t i = 0; i < m_slots.size(); ++i) {
        siginfo_t death{};
        if (m_slots[i].pid <= 0 ||
            waitid(P_PID, static_cast<id_t>(m_slots[i].pid), &death, WEXITED | WNOWAIT) != 0) {
            continue;
        }
        logDeath(i, death, reapServant(i));
    }
    if (m_holdsTable) ipc::release(header().spinLock);
    m_holdsTable = false;
}

void ServantPool::notifyWaitingClients() {
    for (size_t i = 0; i < m_slots.size(); ++i) {
        if (entry(i).state != ChannelState::connected || !processLives(entry(i).clientPid)) continue;
        try {
            getChannel(i).send_error(kErrorNotice);
        } catch (...) {
            OFLOG_ERROR(GetQXLogger(), "The client of channel (" << i << ") could not be told of the stop");
        }
    }
}
