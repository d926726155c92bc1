#pragma once

#include <optional>
#include <string>
#include <vector>

#include "vintakd/ipc/Gateway.h"

/// How well a daemon is, as a client on its host can tell.
struct PoolHealth {
    enum class Verdict {
        healthy,
        degraded,    ///< it serves, but somebody should look
        notServing,  ///< a daemon is there, but nobody is served
    };
    /// When and how a servant last died.
    struct Death {
        std::string reason;
        double time = 0;  ///< seconds since 1970
    };

    Verdict verdict = Verdict::healthy;
    std::vector<std::string> problems;  ///< why it is not healthy

    std::string segment;
    uint64_t channelSize = 0;
    int32_t daemonPid = 0;  ///< 0: not known
    std::vector<ChannelSnapshot> channels;
    std::optional<bool> answers;  ///< nothing: nobody was free to be asked

    // What only the daemon's own figures tell; without them the reason why they are not there.
    std::string noMetrics;
    std::string version;
    double startTime = 0;                ///< seconds since 1970
    double metricsAge = 0;               ///< s
    std::vector<double> requestSeconds;  ///< of each channel; 0: no request
    double oldestRequestSeconds = 0;     ///< 0: there is none
    std::optional<Death> lastDeath;
};

/// Looks at the pool behind a gateway, and at its figures in the run directory `run`: a look of a second at
/// the most where it is well or being renewed. Throws what a gateway throws that loses its daemon.
PoolHealth examinePool(Gateway& gateway, const std::string& run);

/// Seconds since a channel was last used.
double silentSeconds(const ChannelSnapshot& channel);
