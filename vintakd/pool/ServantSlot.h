#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "vintakd/pool/servantdeath.h"

/// What the supervisor itself knows of a channel's servant, and what it makes of it.
struct ServantSlot {
    using Clock = std::chrono::steady_clock;

    pid_t pid = 0;  ///< 0: no process
    bool ready = false;
    bool waitsForClient = false;  ///< the region is reset at resetAt, or sooner
    Clock::time_point resetAt;
    bool waitsForRestart = false;  ///< forked again at restartAt
    Clock::time_point restartAt;
    int failedStarts = 0;
    Clock::time_point startedAt;
    std::optional<Clock::time_point> clientGoneSince;  ///< at work for nobody
    std::string killedFor;                             ///< why the supervisor ended it
    std::optional<DeathReason> killedAs;
    bool stopped = false;  ///< asked to end with the daemon

    /// A process was forked for the channel.
    void begin(pid_t process);
    /// Another start failed: the next is to be tried later, and later still each time.
    void postpone();
    /// The region stays as it is for the time that a client that could not be told is given: `limitMs`, its
    /// channel's time-out, and some seconds; without one (0 or less) until it lets go or dies.
    void waitForClient(int32_t limitMs);

    /// Looks at the request in the servant's hands (it came at `busySince` on nanoTime()'s clock; 0: none)
    /// and at whether anybody still waits for it. True when the supervisor is to end the servant, and
    /// killedFor and killedAs then say why.
    bool isToEnd(int64_t busySince, bool isForNobody, const ServantLimits& limits);

    /// The end of the process, as far as it is known here.
    ServantDeath describe(const siginfo_t& how, const rusage& used) const;
};
