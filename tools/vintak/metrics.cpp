#include <cstdio>

#include "hsutils/Utils.h"
#include "tools/command/CommandLine.h"
#include "tools/command/MetricsText.h"
#include "tools/exitcodes.h"
#include "tools/vintak/commands.h"

namespace po = boost::program_options;

int runMetrics(const std::vector<std::string>& arguments) {
    CommandLine line(
        "metrics [--run DIR]",
        "Prints the daemon's figures in the text format of Prometheus, as it writes them into "
        "vintakd.prom in its run directory.\n\nExit status: 0 printed, 2 usage, 3 no figures, or none "
        "of a daemon that runs.");
    line.addOptions()(
        "run", po::value<std::string>()->default_value(""),
        "the daemon's run directory (default: the environment variable RUN, else /run/vintakd)");
    if (!line.parse(arguments)) return kAllDone;
    try {
        const MetricsText metrics(runFolder(line.get<std::string>("run")));
        if (metrics.isFresh()) {
            fwrite(metrics.text().data(), 1, metrics.text().size(), stdout);
            return kAllDone;
        }
        fprintf(stderr, "vintak: %s was written %.0f seconds ago: the daemon is gone, or stuck\n",
                printable(metrics.path()).c_str(), metrics.age());
    } catch (const NoMetrics& reason) {
        fprintf(stderr, "vintak: %s\n", printable(reason.what()).c_str());
    }
    return kNoDaemon;
}
