#include "vintakd/pool/ServantPool.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "hsutils/Utils.h"
#include "vintakd/ipc/QXLogger.h"
#include "vintakd/ipc/ipcexceptions.h"
#include "vintakd/ipc/processes.h"
#include "vintakd/ipc/trace.h"
#include "vintakd/pool/ServantLoop.h"
#include "vintakd/pool/servantdeath.h"
#include "vintakd/pool/systemcallfilter.h"

#define TRACE_THIS(text) TRACE_OBJECT("     GatewaySupervisor[", this, text)
#define TRACE_SLOT(index, text) TRACE_CHANNEL(index, "GatewaySupervisor", this, text)

using namespace std::chrono_literals;

namespace {

constexpr auto kStartLimit = 60s;  // for all servants to become ready
constexpr auto kPendingPoll = 200ms;
constexpr auto kWatchPoll = 1000ms;             // how late a deadline may be noticed
constexpr auto kIdlePoll = 10'000ms;            // how old the figures of an idle pool are
constexpr int kLooksUntilIdle = 3;              // for who knocks to reserve, and for the last figures
constexpr auto kStopGrace = 2s;                 // between SIGINT and SIGKILL
constexpr ipc::timeout kLockOfTheDead{10'000};  // nobody else may be left to free it

}  // namespace

ServantPool::ServantPool(const char* name, uint64_t smSize, uint64_t channelSize, uint64_t channelCount,
                         bool throwIfSMExists)
    : GatewayBase(name, smSize, channelSize, channelCount, throwIfSMExists, true),
      m_reports(GatewayBase::channelCount(), "the servants' reports") {
    m_slots.resize(GatewayBase::channelCount());
    for (size_t i = 0; i < m_slots.size(); ++i) {
        entry(i) = {ChannelState::purging, 0, 0, 0};
    }
}

bool ServantPool::startServers() {
    blockSupervisorSignals();
    bool started = true;
    for (size_t i = 0; i < m_slots.size(); ++i)
        started = startServer(i) && started;
    awaitReady();
    m_holdsTable = false;
    ipc::releaseAndWake(header().spinLock);
    m_notifier.ready("serving with " + std::to_string(m_slots.size()) + " servants");
    return started;
}

void ServantPool::awaitReady() {
    const auto limit = Clock::now() + kStartLimit;
    for (;;) {
        readReadyReports();
        bool allReady = true;
        for (size_t i = 0; i < m_slots.size(); ++i) {
            if (m_slots[i].ready) continue;
            allReady = false;
            siginfo_t death{};
            if (waitid(P_PID, static_cast<id_t>(m_slots[i].pid), &death, WEXITED | WNOHANG | WNOWAIT) == 0 &&
                death.si_pid != 0) {
                throw std::runtime_error("the servant of channel " + std::to_string(i) +
                                         " ended before it was ready: " + describeDeath(death));
            }
        }
        if (allReady) return;
        if (Clock::now() > limit) throw std::runtime_error("the servants did not become ready in time");
        pollfd wait{m_readyPipe.file(), POLLIN, 0};
        poll(&wait, 1, static_cast<int>(kPendingPoll.count()));
    }
}

bool ServantPool::startServer(size_t index) {
    m_reports[index].busySince = 0;
    (void)fflush(nullptr);  // what is buffered now must not be written by the child too
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid < 0) {
        const int error = errno;
        TRACE_THIS("startServer(): fork() failed: " << error << ": " << std::strerror(error));
        throw std::runtime_error(std::strerror(error));
    }
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // a daemon that was killed must not leave servants behind
        if (getppid() != parent) _exit(1);
        becomeServant(index);
    }
    m_slots[index].begin(pid);
    ++m_metrics.counters().starts;
    OFLOG_INFO(GetQXLogger(), "Servant " << pid << " started for channel (" << index << ")");
    return true;
}

// The child never returns, and ends without running what the parent registered for its own end.
void ServantPool::becomeServant(size_t index) {
    m_signals.leave();
    m_readyPipe.keepOnlyWriting();
    int status = EXIT_SUCCESS;
    try {
        m_limits.apply();
        servantduty::adopt(m_reports, index, m_metrics.counters(), m_limits, m_bell);
        serverProcess(index);
    } catch (const std::exception& error) {
        OFLOG_ERROR(GetQXLogger(), "Servant " << getpid() << " (" << index << ") ends: " << error.what());
        status = EXIT_FAILURE;
    } catch (...) {
        OFLOG_ERROR(GetQXLogger(), "Servant " << getpid() << " (" << index << ") ends: its client is gone");
        status = EXIT_FAILURE;
    }
    (void)fflush(nullptr);
    _exit(status);
}

void ServantPool::serverProcess(size_t index) {
    ServantLoop(getChannel(index), this)
        .run([this] { return makeServant(); },
             [this, index] {
                 if (m_limits.systemCallFilter) {
                     // The system log is connected to now: later there are no sockets.
                     openlog("vintakd", LOG_NDELAY, LOG_USER);
                     installSystemCallFilter();
                 }
                 m_readyPipe.report(index);
             });
}

void ServantPool::readReadyReports() {
    while (const auto report = m_readyPipe.read()) {
        if (report->index < m_slots.size()) markReady(report->index, report->pid);
    }
}

void ServantPool::markReady(size_t index, pid_t pid) {
    ServantSlot& slot = m_slots[index];
    if (slot.pid != pid) return;
    slot.ready = true;
    slot.failedStarts = 0;
    withTable([&] {
        ChannelEntry& channel = entry(index);
        channel.servantPid = pid;
        if (channel.state != ChannelState::purging) return;
        channel.clientPid = 0;
        channel.clientThreadId = 0;
        channel.state = ChannelState::free;
    });
    ipc::wakeForChannel(header().spinLock);
}

void ServantPool::supervise() {
    m_signals.open();
    while (exitFlag != 1) {
        reapDead();
        lookAgain();
        watchRequests();
        writeMetrics();
        m_notifier.alive();  // from here and nowhere else: a supervisor that is stuck must fall silent
        waitForEvents(m_notifier.pause(untilNextLook()));
        m_signals.read();
        readReadyReports();
    }
}

// Deadlines are noticed by looking, but only of what there is: once nothing has been going on for some looks,
// a servant that hears a knock tells. What comes between the look and the bell is seen in the next look.
std::chrono::milliseconds ServantPool::untilNextLook() {
    m_idleLooks = somethingGoesOn() ? 0 : std::min(m_idleLooks + 1, kLooksUntilIdle);
    if (somethingPending()) return kPendingPoll;
    if (m_idleLooks < kLooksUntilIdle) return kWatchPoll;
    m_bell.hangUp();
    return somethingGoesOn() ? kWatchPoll : kIdlePoll;
}

/// Whether a request is at work, a channel is reserved or a servant is not ready.
bool ServantPool::somethingGoesOn() {
    for (size_t i = 0; i < m_slots.size(); ++i)
        if (!m_slots[i].ready || m_reports[i].busySince != 0 ||
            std::atomic_ref(entry(i).state).load() != ChannelState::free)
            return true;
    return false;
}

bool ServantPool::somethingPending() const {
    for (const ServantSlot& slot : m_slots) {
        if (slot.waitsForClient || slot.waitsForRestart) return true;
    }
    return false;
}

void ServantPool::waitForEvents(std::chrono::milliseconds longest) {
    pollfd files[3] = {
        {m_signals.file(), POLLIN, 0}, {m_readyPipe.file(), POLLIN, 0}, {m_bell.file(), POLLIN, 0}};
    poll(files, 3, static_cast<int>(longest.count()));
    if (m_bell.stop()) m_idleLooks = 0;
}

ipc::SpinGuard ServantPool::lockTableAtLast() {
    for (;;) {
        try {
            return lockTable();
        } catch (const TimeoutException&) {
            OFLOG_ERROR(GetQXLogger(), "The segment's spin lock could not be had in "
                                           << getTimeout().milliseconds() << " ms; trying again");
        }
    }
}

// A servant that dies before it is ready dies of its machine, not of a request: to fork it again at once
// would only heat the processor. One that was ready is always replaced at once, so that no client can slow
// the pool down.
void ServantPool::startOrPostpone(size_t index) {
    if (m_slots[index].failedStarts == 0) {
        tryStart(index);
    } else {
        m_slots[index].postpone();
    }
}

void ServantPool::tryStart(size_t index) {
    m_slots[index].waitsForRestart = false;
    try {
        startServer(index);
    } catch (const std::runtime_error& error) {
        OFLOG_ERROR(GetQXLogger(),
                    "No servant could be started for channel (" << index << "): " << error.what());
        ++m_slots[index].failedStarts;
        ++m_metrics.counters().failedStarts;
        m_slots[index].postpone();
    }
}

bool ServantPool::purgeChannel(size_t index) {
    ChannelState state = ChannelState::free;
    withTable([&] { state = entry(index).state; });
    const bool sendError = state == ChannelState::connected;
    TRACE_SLOT(index, "purgeChannel(): bSendError:" << sendError << ", bResetChannel:"
                                                    << (state == ChannelState::purging));
    if (sendError) {
        try {
            getChannel(index).send_error(kErrorNotice);
            return true;  // the client knows, and will release the channel itself
        } catch (const TimeoutException&) {
            TRACE_SLOT(index, "purgeChannel(): send error timedout, going to reset channel");
        } catch (...) {
            TRACE_SLOT(index, "purgeChannel(): send error other exception, going to reset channel");
        }
    }
    if (resetChannel(index, false)) return true;
    // A client without a time-out waits until it dies or is told: the region stays as it is until it lets go.
    m_slots[index].waitForClient(getChannel(index).getTimeout().milliseconds());
    return false;
}

// A servant that died idle leaves its region dirty too (it was waiting in the barrier), so a free entry is
// reset as well; under the lock no client can be at the channel unless the entry says so.
bool ServantPool::resetChannel(size_t index, bool evenIfConnected) {
    bool reset = false;
    withTable([&] {
        ChannelEntry& channel = entry(index);
        const bool held = channel.state == ChannelState::connected && processLives(channel.clientPid);
        if (held && !evenIfConnected) return;
        rebuildChannel(index);
        channel = {ChannelState::purging, 0, 0, 0};
        reset = true;
    });
    return reset;
}

// What could not be done when a servant died, tried again: a channel under a client that could not be told,
// and a servant that could not be started.
void ServantPool::lookAgain() {
    for (size_t i = 0; i < m_slots.size(); ++i) {
        ServantSlot& slot = m_slots[i];
        if (slot.waitsForClient && resetChannel(i, Clock::now() >= slot.resetAt)) {
            slot.waitsForClient = false;
            startOrPostpone(i);
        }
        if (slot.waitsForRestart && Clock::now() >= slot.restartAt) tryStart(i);
    }
}

void ServantPool::writeMetrics() {
    std::vector<bool> ready;
    for (const ServantSlot& slot : m_slots)
        ready.push_back(slot.pid > 0 && slot.ready);
    m_metrics.writeIfDue(m_reports, ready);
}

// The end of the pool: its servants first, then the news for the clients that still wait.

void ServantPool::stopServers() {
    m_notifier.stopping();
    OFLOG_INFO(GetQXLogger(), "GatewaySupervisor::stopServer()");
    for (ServantSlot& slot : m_slots) {
        if (slot.pid > 0) slot.stopped = kill(slot.pid, SIGINT) == 0;
    }
    const auto limit = Clock::now() + kStopGrace;
    for (const ServantSlot& slot : m_slots) {
        if (slot.pid > 0) awaitEnd(slot.pid, limit);
    }
    forgetServants();
    notifyWaitingClients();
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
        logDeath(i, m_slots[i].describe(death, reapServant(i)));
    }
    if (m_holdsTable) ipc::releaseAndWake(header().spinLock);
    m_holdsTable = false;
}

// Whoever waits is told at once; those who do not listen are not to hold up the stop, however many they are.
void ServantPool::notifyWaitingClients() {
    const auto limit = Clock::now() + kStopGrace;
    for (size_t i = 0; i < m_slots.size(); ++i) {
        if (entry(i).state != ChannelState::connected || !processLives(entry(i).clientPid)) continue;
        try {
            getChannel(i).send_error(Clock::now() < limit ? kErrorNotice : kShortNotice);
        } catch (...) {
            OFLOG_ERROR(GetQXLogger(), "The client of channel (" << i << ") could not be told of the stop");
        }
    }
}
