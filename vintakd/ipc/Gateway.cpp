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

// How long who is in no haste goes on once he is served, before he lets others have his place: each change
// costs switches of processes and cold caches.
constexpr ipc::timeout kTurn{3};

/// Whether this thread's last release woke one that slept for a channel.
thread_local bool t_wokeAnother = false;

/// Since this thread's turn began.
thread_local std::optional<ipc::ElapsedTimer> t_turn;

bool isInTurn() {
    return t_turn && !t_turn->reached(kTurn);
}

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
    // And who is about to take what this thread has just let go.
    return served() + (t_wokeAnother ? 1 : 0) > processors() && processorsAreBusy();
}

size_t Gateway::served() {
    size_t count = 0;
    for (size_t i = 0; i < channelCount(); ++i)
        if (std::atomic_ref(entry(i).state).load() == ChannelState::connected) ++count;
    return count;
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
            if (haste == Haste::none && !isInTurn() && !timer.reached(givingWay) && isServingEnough()) {
                t_wokeAnother = false;
                ipc::sleepGivingWay(header().spinLock, timer.rest(givingWay));
                daemon.check();
                if (timer.reached(limit)) throw TimeoutException();
                continue;
            }
            for (auto taken = takeFree(0, renewal); taken; taken = takeFree(taken->index + 1, renewal))
                if (keepIfServed(*taken)) {
                    if (haste == Haste::none && !isInTurn()) t_turn.emplace();
                    return taken->index;
                }
            const int64_t pause = renewal ? kRenewalPauseMilliseconds : kPauseMilliseconds;
            ipc::sleepForChannel(header().spinLock,
                                 limit == ipc::no_timeout ? pause : std::min(pause, timer.rest(limit)));
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

bool Gateway::isOurs(const ChannelEntry& slot) {
    return slot.state == ChannelState::connected && slot.clientPid == getpid() &&
           slot.clientThreadId == mygettid();
}

/// Connects this thread to the first free channel from `first` on. One whose servant is just being replaced
/// is passed over, and noted in `renewal`.
std::optional<Gateway::Taken> Gateway::takeFree(size_t first, bool& renewal) {
    const auto lock = lockTable();
    if (first == 0) purgeSilentChannels();
    for (size_t i = first; i < channelCount(); ++i) {
        ChannelEntry& slot = entry(i);
        if (slot.state != ChannelState::free) continue;
        if (isBeingRenewed(i)) {
            renewal = true;
            continue;
        }
        setState(slot, ChannelState::connected);
        slot.clientPid = getpid();
        slot.clientThreadId = mygettid();
        getChannel(i).updateLastCommunication();
        return Taken{i, slot.servantPid};
    }
    return std::nullopt;
}

/// Knocks at a channel that was taken; false when nobody answers, and it is not this thread's any more.
///
/// The table is not locked meanwhile. Where there is more to do than there are processors, the servant waits
/// for one of them before it can answer, and nobody else could reserve or release a channel until it has one.
bool Gateway::keepIfServed(const Taken& taken) {
    try {
        if (checkServant(getChannel(taken.index), kServantCheck)) return true;
    } catch (const ipc::UserException&) {
        // Of a servant that died just now the supervisor tells whoever is connected to it.
        const bool died = taken.servantPid > 0 && !processLives(taken.servantPid);
        releaseChannel(taken.index);
        if (!died) throw;
        return false;
    } catch (...) {
        releaseChannel(taken.index);
        throw;
    }
    auto lock = lockTable();
    ChannelEntry& slot = entry(taken.index);
    if (slot.servantPid != taken.servantPid) {
        lock.unlock();
        releaseChannel(taken.index);
    } else if (isOurs(slot)) {
        TRACE_THIS("reserveChannel(): the servant is not there, purge the channel and kill the servant ("
                   << taken.servantPid << ")");
        setState(slot, ChannelState::purging);
        slot.clientPid = 0;
        slot.clientThreadId = 0;
        killServant(taken.servantPid);
    }
    return false;
}

void Gateway::releaseChannel(size_t index) {
    auto lock = lockTable();
    ChannelEntry& slot = entry(index);
    if (!isOurs(slot)) return;
    TRACE_CHANNEL(index, "Gateway", this, "releaseChannel(" << index << "): releasing channel");
    setState(slot, ChannelState::free);
    slot.clientPid = 0;
    slot.clientThreadId = 0;
    lock.unlock();
    // Whoever is in his turn comes back in a moment; if not, there is enough to do for the processors all the
    // same.
    const bool keepsPlace = isInTurn() && served() >= processors();
    t_wokeAnother = ipc::wakeForChannel(header().spinLock, !keepsPlace);
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
