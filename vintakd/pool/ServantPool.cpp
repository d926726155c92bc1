#include "vintakd/pool/ServantPool.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "vintakd/ipc/QXLogger.h"
#include "vintakd/ipc/ipcexceptions.h"
#include "vintakd/ipc/processes.h"
#include "vintakd/ipc/trace.h"
#include "vintakd/pool/ServantLoop.h"
#include "vintakd/pool/SystemCallFilter.h"

#define TRACE_THIS(text) TRACE_OBJECT("     GatewaySupervisor[", this, text)
#define TRACE_SLOT(index, text) TRACE_CHANNEL(index, "GatewaySupervisor", this, text)

using namespace std::chrono_literals;

volatile std::sig_atomic_t exitFlag = 0;

void InterruptHandler(int) {
    exitFlag = 1;
}

namespace {

constexpr auto kStartLimit = 60s;  // for all servants to become ready
constexpr auto kClientGrace = 5s;  // beyond a channel's time-out
constexpr auto kFirstPostponement = 100ms;
constexpr int kMostDoublings = 6;  // a servant that cannot start is tried every 6.4 s at the longest
constexpr int kPendingPoll = 200;  // ms
constexpr int kWatchPoll = 1000;   // ms; how late a deadline may be noticed

struct ReadyReport {
    uint32_t index;
    int32_t pid;
};

sigset_t supervisorSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGCHLD);
    return signals;
}

void setDefaultAction(int signal) {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigaction(signal, &action, nullptr);
}

}  // namespace

void blockSupervisorSignals() {
    setDefaultAction(SIGCHLD);  // an inherited SIG_IGN would reap our children behind our back
    const sigset_t signals = supervisorSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

ServantPool::ServantPool(const char* name, uint64_t smSize, uint64_t channelSize, uint64_t channelCount,
                         bool throwIfSMExists)
    : GatewayBase(name, smSize, channelSize, channelCount, throwIfSMExists, true),
      m_reports(GatewayBase::channelCount()) {
    m_slots.resize(GatewayBase::channelCount());
    for (size_t i = 0; i < m_slots.size(); ++i) {
        entry(i) = {ChannelState::purging, 0, 0, 0};
    }
    if (pipe2(m_readyPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        throw std::runtime_error(std::string("no pipe for the servants' reports: ") + std::strerror(errno));
    }
}

ServantPool::~ServantPool() {
    for (int file : {m_signalFile, m_readyPipe[0], m_readyPipe[1]}) {
        if (file >= 0) close(file);
    }
}

bool ServantPool::startServers() {
    blockSupervisorSignals();
    bool started = true;
    for (size_t i = 0; i < m_slots.size(); ++i)
        started = startServer(i) && started;
    awaitReady();
    m_holdsTable = false;
    ipc::release(header().spinLock);
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
        pollfd wait{m_readyPipe[0], POLLIN, 0};
        poll(&wait, 1, kPendingPoll);
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
    Slot& slot = m_slots[index];
    slot.pid = pid;
    slot.ready = false;
    slot.startedAt = Clock::now();
    slot.clientGoneSince.reset();
    slot.killedFor.clear();
    OFLOG_INFO(GetQXLogger(), "Servant " << pid << " started for channel (" << index << ")");
    return true;
}

// The child never returns, and ends without running what the parent registered for its own end.
void ServantPool::becomeServant(size_t index) {
    for (int signal : {SIGINT, SIGTERM})
        setDefaultAction(signal);
    const sigset_t signals = supervisorSignals();
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    if (m_signalFile >= 0) close(m_signalFile);
    close(m_readyPipe[0]);
    int status = EXIT_SUCCESS;
    try {
        m_limits.apply();
        servantduty::adopt(m_reports[index], m_limits);
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
                 const ReadyReport report{static_cast<uint32_t>(index), getpid()};
                 // A pipe that is full of other servants' reports empties as the supervisor reads it.
                 while (write(m_readyPipe[1], &report, sizeof report) < 0 &&
                        (errno == EAGAIN || errno == EINTR)) {
                     usleep(1000);
                 }
                 close(m_readyPipe[1]);
             });
}

void ServantPool::readReadyReports() {
    ReadyReport report{};
    while (read(m_readyPipe[0], &report, sizeof report) == static_cast<ssize_t>(sizeof report)) {
        if (report.index < m_slots.size()) markReady(report.index, report.pid);
    }
}

void ServantPool::markReady(size_t index, pid_t pid) {
    Slot& slot = m_slots[index];
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
}

void ServantPool::supervise() {
    blockSupervisorSignals();
    if (m_signalFile < 0) {
        const sigset_t signals = supervisorSignals();
        m_signalFile = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
        if (m_signalFile < 0)
            throw std::runtime_error(std::string("no signal file: ") + std::strerror(errno));
    }
    while (exitFlag != 1) {
        reapDead();
        lookAgain();
        watchRequests();
        waitForEvents(somethingPending() ? kPendingPoll : kWatchPoll);
        readSignals();
        readReadyReports();
    }
}

bool ServantPool::somethingPending() const {
    for (const Slot& slot : m_slots) {
        if (slot.waitsForClient || slot.waitsForRestart) return true;
    }
    return false;
}

void ServantPool::waitForEvents(int milliseconds) {
    pollfd files[2] = {{m_signalFile, POLLIN, 0}, {m_readyPipe[0], POLLIN, 0}};
    poll(files, 2, milliseconds);
}

void ServantPool::readSignals() const {
    signalfd_siginfo info{};
    while (read(m_signalFile, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        if (info.ssi_signo == SIGINT || info.ssi_signo == SIGTERM)
            InterruptHandler(static_cast<int>(info.ssi_signo));
    }
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
        postpone(index);
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
        postpone(index);
    }
}

void ServantPool::postpone(size_t index) {
    Slot& slot = m_slots[index];
    slot.waitsForRestart = true;
    slot.restartAt =
        Clock::now() + kFirstPostponement * (1 << std::min(slot.failedStarts - 1, kMostDoublings));
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
    Slot& slot = m_slots[index];
    slot.waitsForClient = true;
    // A client without a time-out waits until it dies or is told: the region stays as it is until it lets go.
    const int32_t limit = getChannel(index).getTimeout().milliseconds();
    slot.resetAt = limit <= 0 ? Clock::time_point::max()
                              : Clock::now() + std::chrono::milliseconds(limit) + kClientGrace;
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
        Slot& slot = m_slots[i];
        if (slot.waitsForClient && resetChannel(i, Clock::now() >= slot.resetAt)) {
            slot.waitsForClient = false;
            startOrPostpone(i);
        }
        if (slot.waitsForRestart && Clock::now() >= slot.restartAt) tryStart(i);
    }
}
