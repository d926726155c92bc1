#pragma once

#include <signal.h>
#include <sys/resource.h>
#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "vintakd/pool/servantduty.h"

/// What is known of a servant that has ended.
struct ServantDeath {
    siginfo_t how{};
    rusage used{};                             ///< over its whole life
    std::chrono::duration<double> livedFor{};  ///< s
    bool endedWithDaemon = false;              ///< it was asked to, because the daemon stops
    std::string killedFor;                     ///< why the supervisor ended it; empty when it did not
    std::optional<DeathReason> killedAs;       ///< the same in a word
};

/// The whole story in one line without its beginning: what ended the servant, after how long, what it was
/// doing and what it had used.
std::string describeServantDeath(const ServantDeath& death, const ServantReport& report,
                                 const ServantLimits& limits);

/// Waits up to `limit` for a child that was asked to end, then kills it. It is not reaped.
void awaitEnd(pid_t pid, std::chrono::steady_clock::time_point limit);
