#include <cstdio>
#include <ctime>

#include "hsutils/Utils.h"
#include "hsutils/jsontext.h"
#include "tools/command/CommandLine.h"
#include "tools/command/MetricsText.h"
#include "tools/command/Session.h"
#include "tools/exitcodes.h"
#include "tools/vintak/PoolHealth.h"
#include "tools/vintak/commands.h"

namespace po = boost::program_options;

namespace {

struct VerdictText {
    const char* word;
    int status;
};

VerdictText describe(PoolHealth::Verdict verdict) {
    switch (verdict) {
        case PoolHealth::Verdict::healthy:
            return {"healthy", kAllDone};
        case PoolHealth::Verdict::degraded:
            return {"degraded", kSomeFailed};
        case PoolHealth::Verdict::notServing:
            break;
    }
    return {"not serving", kAllFailed};
}

std::string utc(double time) {
    const auto seconds = static_cast<time_t>(time);
    tm parts{};
    gmtime_r(&seconds, &parts);
    char text[32];
    return {text, strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

double requestSeconds(const PoolHealth& health, size_t channel) {
    return channel < health.requestSeconds.size() ? health.requestSeconds[channel] : 0;
}

void printChannel(const PoolHealth& health, size_t index) {
    const ChannelSnapshot& channel = health.channels[index];
    printf("channel %zu: %s, servant %d", index, nameOf(channel.state), channel.servantPid);
    if (channel.state == ChannelState::connected)
        printf(", client %d/%d, silent for %.1f s", channel.clientPid, channel.clientThreadId,
               silentSeconds(channel));
    if (requestSeconds(health, index) > 0)
        printf(", its request is %.1f s old", requestSeconds(health, index));
    printf("\n");
}

void printText(const PoolHealth& health) {
    printf("%s\n", describe(health.verdict).word);
    for (const std::string& problem : health.problems)
        printf("problem: %s\n", printable(problem).c_str());
    printf("daemon: pid %d", health.daemonPid);
    if (health.noMetrics.empty())
        printf(", version %s, started %s", health.version.c_str(), utc(health.startTime).c_str());
    printf("\nsegment: %s, %zu channels of %llu bytes\n", health.segment.c_str(), health.channels.size(),
           static_cast<unsigned long long>(health.channelSize));
    for (size_t i = 0; i < health.channels.size(); ++i)
        printChannel(health, i);
    if (!health.answers)
        printf("answer: nobody is free to be asked\n");
    else
        printf("answer: %s\n", *health.answers ? "yes" : "no");
    if (!health.noMetrics.empty()) {
        printf("oldest request, last death: %s\n", printable(health.noMetrics).c_str());
        return;
    }
    if (health.oldestRequestSeconds > 0)
        printf("oldest request: %.1f s\n", health.oldestRequestSeconds);
    else
        printf("oldest request: none\n");
    if (health.lastDeath)
        printf("last death: %s at %s\n", health.lastDeath->reason.c_str(),
               utc(health.lastDeath->time).c_str());
    else
        printf("last death: none\n");
}

std::string problemsJson(const std::vector<std::string>& problems) {
    std::string text = "[";
    for (const std::string& problem : problems)
        text += (text.size() > 1 ? "," : "") + jsonText(problem);
    return text + "]";
}

/// What only the figures tell is null without them.
void printFiguresJson(const PoolHealth& health) {
    if (!health.noMetrics.empty()) {
        printf(
            "\"version\":null,\"start_time\":null,\"metrics_age_seconds\":null,\"oldest_request_seconds\":"
            "null,"
            "\"last_death\":null,\"no_metrics\":%s}\n",
            jsonText(health.noMetrics).c_str());
        return;
    }
    printf("\"version\":%s,\"start_time\":%.0f,\"metrics_age_seconds\":%.0f,\"oldest_request_seconds\":%.3f,",
           jsonText(health.version).c_str(), health.startTime, health.metricsAge,
           health.oldestRequestSeconds);
    if (health.lastDeath)
        printf("\"last_death\":{\"reason\":%s,\"time\":%.0f}}\n", jsonText(health.lastDeath->reason).c_str(),
               health.lastDeath->time);
    else
        printf("\"last_death\":null}\n");
}

void printJson(const PoolHealth& health) {
    printf(
        "{\"status\":\"%s\",\"problems\":%s,\"daemon_pid\":%d,\"segment\":%s,\"channel_size\":%llu,"
        "\"answers\":%s,\"channels\":[",
        describe(health.verdict).word, problemsJson(health.problems).c_str(), health.daemonPid,
        jsonText(health.segment).c_str(), static_cast<unsigned long long>(health.channelSize),
        !health.answers   ? "null"
        : *health.answers ? "true"
                          : "false");
    for (size_t i = 0; i < health.channels.size(); ++i) {
        const ChannelSnapshot& channel = health.channels[i];
        printf(
            "%s{\"channel\":%zu,\"state\":\"%s\",\"servant_pid\":%d,\"client_pid\":%d,\"client_tid\":%d,"
            "\"silent_seconds\":%.3f,\"request_seconds\":%.3f}",
            i > 0 ? "," : "", i, nameOf(channel.state), channel.servantPid, channel.clientPid,
            channel.clientThreadId, silentSeconds(channel), requestSeconds(health, i));
    }
    printf("],");
    printFiguresJson(health);
}

/// A script that asked for JSON gets it whatever the answer is.
int printAbsence(const char* word, const char* why, int status) {
    printf("{\"status\":\"%s\",\"problems\":[%s]}\n", word, jsonText(why).c_str());
    return status;
}

}  // namespace

int runHealth(const std::vector<std::string>& arguments) {
    CommandLine line("health [--json] [--run DIR]",
                     "Tells how well the daemon is: its segment, every channel, whether a servant answers, "
                     "the oldest request "
                     "and the last death of a servant.\n\nExit status: 0 healthy, 1 degraded (it serves, but "
                     "somebody should "
                     "look), 2 usage, 3 no daemon, 4 not serving, 5 not allowed.");
    line.addOptions()("json", "print one JSON object")(
        "run", po::value<std::string>()->default_value(""),
        "the daemon's run directory (default: the environment variable RUN, else /run/vintakd)");
    if (!line.parse(arguments)) return kAllDone;
    const bool json = line.has("json");
    try {
        Session session(line.segment());
        const PoolHealth health = examinePool(session.gateway(), runFolder(line.get<std::string>("run")));
        if (!session.gateway().daemonLives()) throw NoDaemon("the daemon went away");
        if (json)
            printJson(health);
        else
            printText(health);
        return describe(health.verdict).status;
    } catch (const NoDaemon& error) {
        if (!json) throw;
        return printAbsence("no daemon", error.what(), kNoDaemon);
    } catch (const NotAllowed& error) {
        if (!json) throw;
        return printAbsence("not allowed", error.what(), kNotAllowed);
    }
}
