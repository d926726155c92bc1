#include "vintakd/ipc/Gateway.h"

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstring>
#include <string_view>

#include "hsutils/Utils.h"
#include "vintakd/ipc/QXLogger.h"
#include "vintakd/ipc/ipcexceptions.h"
#include "vintakd/ipc/processes.h"
#include "vintakd/ipc/trace.h"

#define TRACE_THIS(text) TRACE_OBJECT("     Gateway[", this, text)

namespace {

constexpr ipc::timeout kServantCheck{100};
constexpr int64_t kPauseMilliseconds = 100;
// A servant that has just retired is about to be replaced: it need not be asked, killed or waited for so
// long.
constexpr int64_t kRenewalPauseMilliseconds = 2;
// And one that does not go is asked all the same: a bit that somebody left up must not cost a channel.
constexpr ipc::timeout kRenewalMilliseconds{1000};
// A pool of one may be without a servant for a moment, and a daemon of another make holds no lock on its
// segment.
constexpr ipc::timeout kDaemonGone{2000};

// How long who is in no haste waits for a servant that is warm, before he takes one that is idle.
constexpr ipc::timeout kGivingWay{100};

/// Whether this thread's last release woke one that slept for a channel.
thread_local bool t_wokeAnother = false;

size_t processors() {
    static const auto count = static_cast<size_t>(std::max(sysconf(_SC_NPROCESSORS_ONLN), 1L));
    return count;
}

/// Whether more want to run than there are processors, this thread not counted; false where the system does
/// not say.
bool processorsAreBusy() {
    char bytes[64];
    const int file = open("/proc/loadavg", O_RDONLY | O_CLOEXEC);
    if (file < 0) return false;
    const ssize_t got = read(file, bytes, sizeof bytes);
    close(file);
    // Three averages, then how many run of how many: "0.20 0.18 0.12 3/80 11206".
    const std::string_view text(bytes, static_cast<size_t>(std::max<ssize_t>(got, 0)));
    const size_t slash = text.find('/');
    if (slash == std::string_view::npos) return false;
    const size_t begin = text.rfind(' ', slash) + 1;
    size_t running = 0;
    std::from_chars(text.data() + begin, text.data() + slash, running);
    return running > processors();
}

}  // namespace

Gateway::Gateway(const char* name) : GatewayBase(name) {
    TRACE_THIS("Gateway("
               << "smName:" << name << ")");
}

bool Gateway::checkServant(ipc::Channel& channel, ipc::timeout limit) {
    try {
        channel.send(s_szKnockKnock, std::strlen(s_szKnockKnock), limit);
        const ipc::Message answer = channel.recv(limit);
        return mymemcmp(answer.getPointer(), answer.getSize(), s_szWhosThere, std::strlen(s_szWhosThere)) ==
               0;
    } catch (const TimeoutException&) {
        TRACE_THIS("checkServant(): TimeoutException, returning false");
    } catch (const ipc::CommunicationMismatchException&) {
        TRACE_THIS("checkServant(): CommunicationMismatchException, returning false");
    }
    return false;
}

int32_t Gateway::daemonPid() {
    struct flock query {};
    query.l_type = F_WRLCK;
    query.l_whence = SEEK_SET;
    const bool held = fcntl(segmentDescriptor(), F_GETLK, &query) == 0 && query.l_type != F_UNLCK;
    return held ? query.l_pid : 0;
}

bool Gateway::daemonLives() {
    struct flock query {};
    query.l_type = F_WRLCK;
    query.l_whence = SEEK_SET;
    if (fcntl(segmentDescriptor(), F_GETLK, &query) == 0 && query.l_type != F_UNLCK) return true;
    for (size_t i = 0; i < channelCount(); ++i) {
        if (processLives(entry(i).servantPid)) return true;
    }
    return false;
}

/// Notices that a daemon has been gone for too long to be just replacing its servants.
class Gateway::DaemonWatch {
public:
    explicit DaemonWatch(Gateway& gateway) : m_gateway(gateway) {}

    /// Throws TimeoutException.
    void check() {
        if (m_gateway.daemonLives()) {
            m_lastSeen = {};
        } else if (m_lastSeen.reached(kDaemonGone)) {
            throw TimeoutException();
        }
    }

private:
    Gateway& m_gateway;
    ipc::ElapsedTimer m_lastSeen;
};

/// Whether the servant of a free channel is just being replaced: the bit is up, and the last message or
/// reservation was a moment ago.
bool Gateway::isBeingRenewed(size_t index) {
    ipc::Channel& channel = getChannel(index);
    if ((channel.status() & ipc::Channel::kStatusRenew) == 0) return false;
    timeval now{};
    gettimeofday(&now, nullptr);
    const timeval last = channel.getLastCommunication();
    const int64_t silent = (now.tv_sec - last.tv_sec) * 1000 + (now.tv_usec - last.tv_usec) / 1000;
    return silent >= 0 && silent < kRenewalMilliseconds.milliseconds();
}

ipc::SpinGuard Gateway::lockTable() {
    while (getTimeout() == ipc::no_timeout) {
        try {
            return {header().spinLock, kDaemonGone, &header().lockOwner};
        } catch (const TimeoutException&) {
            if (!daemonLives()) throw;
        }
    }
    return GatewayBase::lockTable();
}

/// Whether one more that is served would only take the processors from the others. One more than processors
/// has to be, so that none is idle while a channel passes from hand to hand.
bool Gateway::isServingEnough() {
    size_t served = t_wokeAnother ? 1 : 0;  // who is about to take what this thread has just let go
    for (size_t i = 0; i < channelCount(); ++i)
        if (std::atomic_ref(entry(i).state).load() == ChannelState::connected) ++served;
    return served > processors() && processorsAreBusy();
}

size_t Gateway::reserveChannel(Haste haste) {
    const ipc::timeout limit = getTimeout();
    const ipc::timeout givingWay =
        limit == ipc::no_timeout ? kGivingWay : std::min(limit.milliseconds() / 2, kGivingWay.milliseconds());
    const ipc::ElapsedTimer timer;
    DaemonWatch daemon(*this);
    try {
        for (;;) {
            bool renewal = false;
            if (haste == Haste::none && !timer.reached(givingWay) && isServingEnough()) {
                t_wokeAnother = false;
                ipc::sleepGivingWay(header().spinLock, timer.rest(givingWay));
                daemon.check();
                if (timer.reached(limit)) throw TimeoutException();
                continue;
            }
            {
                const auto lock = lockTable();
                purgeSilentChannels();
                for (size_t i = 0; i < channelCount(); ++i) {
                    if (entry(i).state != ChannelState::free) continue;
                    if (isBeingRenewed(i)) {
                        renewal = true;
                    } else if (tryReserve(i)) {
                        return i;
                    }
                }
            }
            ipc::sleepForChannel(header().spinLock, renewal ? kRenewalPauseMilliseconds : kPauseMilliseconds);
            daemon.check();
            if (timer.reached(limit)) throw TimeoutException();
        }
    } catch (const TimeoutException&) {
        TRACE_THIS("reserveChannel(): throw ConnectionTimeoutException");
        OFLOG_ERROR(GetQXLogger(),
                    "GatewayBase::reserveChannel(this=" << static_cast<const void*>(this)
                                                        << "):: throws ConnectionTimeoutException");
        throw ConnectionTimeoutException();
    }
}

bool Gateway::tryReserve(size_t index) {
    ChannelEntry& slot = entry(index);
    if (checkServant(getChannel(index), kServantCheck)) {
        setState(slot, ChannelState::connected);
        slot.clientPid = getpid();
        slot.clientThreadId = mygettid();
        getChannel(index).updateLastCommunication();
        return true;
    }
    const int32_t pid = slot.servantPid;
    TRACE_THIS("reserveChannel(): the servant is not there, purge the channel and kill the servant (" << pid
                                                                                                      << ")");
    setState(slot, ChannelState::purging);
    killServant(pid);
    return false;
}

void Gateway::releaseChannel(size_t index) {
    auto lock = lockTable();
    ChannelEntry& slot = entry(index);
    if (slot.state != ChannelState::connected || slot.clientPid != getpid() ||
        slot.clientThreadId != mygettid()) {
        return;
    }
    TRACE_CHANNEL(index, "Gateway", this, "releaseChannel(" << index << "): releasing channel");
    setState(slot, ChannelState::free);
    slot.clientPid = 0;
    slot.clientThreadId = 0;
    lock.unlock();
    t_wokeAnother = ipc::wakeForChannel(header().spinLock);
}

ReservedChannel::~ReservedChannel() {
    if (!m_held) return;
    try {
        m_gateway.releaseChannel(m_index);
    } catch (const TimeoutException&) {
        OFLOG_ERROR(GetQXLogger(),
                    "Channel " << m_index << " could not be released: the segment's lock is held");
    }
}

void ReservedChannel::release() {
    m_held = false;
    m_gateway.releaseChannel(m_index);
}
