#include <chrono>
#include <cstdio>

#include "tools/command/CommandLine.h"
#include "tools/command/Session.h"
#include "tools/exitcodes.h"
#include "tools/vintak/commands.h"
#include "vintakd/ipc/VintakLog.h"
#include "vintakd/ipc/ipcexceptions.h"

namespace po = boost::program_options;

int runPing(const std::vector<std::string>& arguments) {
    CommandLine line("ping [-n COUNT]",
                     "Asks whether a servant answers.\n\nExit status: 0 answered, 2 usage, 3 no daemon, 4 no "
                     "answer, 5 not allowed.");
    line.addOptions()("count,n", po::value<int>()->default_value(1), "how often to ask");
    if (!line.parse(arguments)) return kAllDone;
    if (line.get<int>("count") < 1) throw UsageError("--count is 1 or more");
    Session session(line.segment());
    for (int i = 0; i < line.get<int>("count"); ++i) {
        const auto start = std::chrono::steady_clock::now();
        bool answered = false;
        try {
            answered = vintakd::ping(session.gateway());
        } catch (const ConnectionTimeoutException&) {
        } catch (const TimeoutException&) {
        } catch (const ipc::ChannelException&) {
        }
        if (!answered) {
            if (!session.gateway().daemonLives()) throw NoDaemon("the daemon went away");
            fprintf(stderr, "no servant answered\n");
            return kAllFailed;
        }
        const std::chrono::duration<double, std::micro> elapsed = std::chrono::steady_clock::now() - start;
        printf("answered in %.0f microseconds\n", elapsed.count());
    }
    return kAllDone;
}

int runStatus(const std::vector<std::string>& arguments) {
    CommandLine line("status",
                     "Prints the channel table.\n\nExit status: 0 printed, 2 usage, 3 no daemon, 4 locked, "
                     "or not written, 5 not "
                     "allowed.");
    line.addOptions()("dump",
                      "also write the segment's bytes into a file in TMP (its name goes to standard error)");
    if (!line.parse(arguments)) return kAllDone;
    Session session(line.segment());
    try {
        session.gateway().printTable();
        if (line.has("dump")) session.gateway().dump();
    } catch (const TimeoutException&) {
        if (!session.gateway().daemonLives()) throw NoDaemon("the daemon went away");
        fprintf(stderr, "the channel table is locked\n");
        return kAllFailed;
    }
    return kAllDone;
}

int runTrace(const std::vector<std::string>& arguments) {
    CommandLine line(
        "trace on|off|show",
        "Switches the diagnostic trace of all processes of the system, or shows whether it is on.\n\n"
        "Exit status: 0 done, 2 usage, 4 the switch cannot be reached.");
    line.takeRestAs("action");
    if (!line.parse(arguments)) return kAllDone;
    const std::vector<std::string> words = line.list("action");
    if (words.size() != 1) throw UsageError("trace takes one of on, off and show");
    if (words[0] == "show") {
        puts(VintakLog::IsEnabled() ? "on" : "off");
        return kAllDone;
    }
    if (words[0] != "on" && words[0] != "off") throw UsageError("trace takes one of on, off and show");
    if (VintakLog::Enable(words[0] == "on")) return kAllDone;
    fprintf(stderr, "the trace switch cannot be reached\n");
    return kAllFailed;
}
