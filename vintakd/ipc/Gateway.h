#pragma once

#include <optional>

#include "vintakd/ipc/GatewayBase.h"

/// The client's view of the gateway. Any number of threads and processes may reserve; a reserved channel
/// belongs to the reserving thread until that thread releases it: reserveChannel() -> getChannel() -> send
/// and recv -> releaseChannel(), the release on every error path too.
class Gateway : public GatewayBase {
public:
    /// Attaches; throws as GatewayBase does. Waits without limit until setTimeout says
    /// otherwise.
    explicit Gateway(const char* name);

    /// Whether a channel is wanted at once. Without haste a thread lets those go on that are served, a tenth
    /// of a second at most and half of its time, while they are more than there are processors and these have
    /// enough to do: to serve more at the same time would take longer, because each servant has its own
    /// memory to bring into their caches. Once served it goes on for 3 ms before it lets others again.
    enum class Haste { some, none };

    /// Finds a free channel whose servant answers, marks it connected and returns its number. Silent servants
    /// on the way are killed and their channels marked for purging. Throws ConnectionTimeoutException when
    /// the gateway's time-out has passed, or when no daemon has stood behind the segment for two seconds: one
    /// that is gone will never free a channel.
    size_t reserveChannel(Haste haste = Haste::some);

    /// Frees a channel that the calling thread reserved; leaves any other alone. Throws TimeoutException.
    void releaseChannel(size_t index);

    /// Whether a daemon stands behind the segment: its owner's lock is held, or one of its servants lives.
    bool daemonLives();
    /// The pid of that owner; 0 where there is none or it is in another pid namespace.
    int32_t daemonPid();

    /// Whether the servant of `channel` answers the knock within `limit`.
    bool checkServant(ipc::Channel& channel, ipc::timeout limit);

protected:
    /// Without a time-out, waits for as long as there is a daemon that would free a lock in dead hands.
    ipc::SpinGuard lockTable() override;

private:
    class DaemonWatch;

    /// A channel that this thread is connected to, and whose servant has still to answer.
    struct Taken {
        size_t index;
        int32_t servantPid;
    };

    bool isServingEnough();
    /// How many channels are connected.
    size_t served();
    bool isBeingRenewed(size_t index);
    static bool isOurs(const ChannelEntry& slot);
    std::optional<Taken> takeFree(size_t first, bool& renewal);
    bool keepIfServed(const Taken& taken);
};

/// A reserved channel for a scope.
class ReservedChannel {
public:
    explicit ReservedChannel(Gateway& gateway, Gateway::Haste haste = Gateway::Haste::some)
        : m_gateway(gateway), m_index(gateway.reserveChannel(haste)) {}
    /// Releases; a lock that cannot be had is left to the purge.
    ~ReservedChannel();
    ReservedChannel(const ReservedChannel&) = delete;
    ReservedChannel& operator=(const ReservedChannel&) = delete;

    size_t index() const { return m_index; }
    /// Releases now, with the errors of Gateway::releaseChannel.
    void release();

private:
    Gateway& m_gateway;
    size_t m_index;
    bool m_held = true;
};
