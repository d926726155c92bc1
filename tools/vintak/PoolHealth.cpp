#include "tools/vintak/PoolHealth.h"

#include <signal.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "hsutils/Utils.h"
#include "tools/command/MetricsText.h"
#include "vintakd/ipc/ipcexceptions.h"
#include "vintakd/vintakd_if.h"

namespace {

using Verdict = PoolHealth::Verdict;

constexpr int kLooks = 5;           // a servant that is being renewed is back in a moment
constexpr int kBetweenLooks = 200;  // ms
constexpr ipc::timeout kPatience{2000};

bool isServed(const ChannelSnapshot& channel) {
    return channel.state != ChannelState::purging && channel.servantPid > 0 &&
           (kill(channel.servantPid, 0) == 0 || errno == EPERM);
}

void worsen(PoolHealth& health, Verdict verdict, std::string problem) {
    health.verdict = std::max(health.verdict, verdict);
    health.problems.push_back(std::move(problem));
}

void lookAtChannels(PoolHealth& health, Gateway& gateway) {
    for (int look = 0; look < kLooks; ++look) {
        if (look > 0) mymilisleep(kBetweenLooks);
        health.channels = gateway.snapshot();
        if (std::all_of(health.channels.begin(), health.channels.end(), isServed)) return;
    }
    size_t unserved = 0;
    for (size_t i = 0; i < health.channels.size(); ++i) {
        if (isServed(health.channels[i])) continue;
        ++unserved;
        worsen(health, Verdict::degraded, "channel " + std::to_string(i) + " has no servant");
    }
    if (unserved == health.channels.size()) worsen(health, Verdict::notServing, "no channel has a servant");
}

/// Somebody is asked only where somebody is free: a full pool is at work, not ill.
void askServant(PoolHealth& health, Gateway& gateway) {
    const bool anyFree = std::any_of(health.channels.begin(), health.channels.end(), [](const auto& channel) {
        return channel.state == ChannelState::free && isServed(channel);
    });
    if (!anyFree) return;
    try {
        health.answers = vintakd::ping(gateway);
    } catch (const ConnectionTimeoutException&) {
        return;  // others were faster
    } catch (const TimeoutException&) {
        health.answers = false;
    } catch (const ipc::ChannelException&) {
        health.answers = false;
    }
    if (!*health.answers) worsen(health, Verdict::notServing, "no servant answered");
}

void readMetrics(PoolHealth& health, const std::string& run) {
    try {
        const MetricsText metrics(run);
        health.metricsAge = metrics.age();
        health.startTime = metrics.value("vintakd_start_time_seconds");
        health.version = metrics.labelOfGreatest("vintakd_build_info", "version");
        for (size_t i = 0; i < health.channels.size(); ++i)
            health.requestSeconds.push_back(
                metrics.value("vintakd_channel_request_seconds{channel=\"" + std::to_string(i) + "\"}"));
        health.oldestRequestSeconds = metrics.value("vintakd_oldest_request_seconds");
        constexpr char kDeaths[] = "vintakd_servant_last_death_time_seconds";
        if (const std::string reason = metrics.labelOfGreatest(kDeaths, "reason"); !reason.empty())
            health.lastDeath = {reason, metrics.value(std::string(kDeaths) + "{reason=\"" + reason + "\"}")};
        if (!metrics.isFresh())
            worsen(health, Verdict::degraded,
                   "the supervisor has written no figures for " +
                       std::to_string(static_cast<long>(health.metricsAge)) + " s");
    } catch (const NoMetrics& reason) {
        health.noMetrics = reason.what();
    }
}

}  // namespace

PoolHealth examinePool(Gateway& gateway, const std::string& run) {
    PoolHealth health;
    health.segment = gateway.name();
    health.channelSize = gateway.channelSize();
    health.daemonPid = gateway.daemonPid();
    gateway.setTimeout(kPatience, false);
    try {
        lookAtChannels(health, gateway);
        askServant(health, gateway);
    } catch (const TimeoutException&) {
        worsen(health, Verdict::notServing, "the channel table is locked");
    }
    readMetrics(health, run);
    return health;
}

double silentSeconds(const ChannelSnapshot& channel) {
    timeval now{};
    gettimeofday(&now, nullptr);
    const timeval& last = channel.lastCommunication;
    return static_cast<double>(now.tv_sec - last.tv_sec) +
           static_cast<double>(now.tv_usec - last.tv_usec) / 1e6;
}
