#include <sys/stat.h>

#include <cstdio>
#include <iostream>
#include <memory>
#include <thread>

#include "hsutils/Utils.h"
#include "tools/command/CommandLine.h"
#include "tools/command/Interruption.h"
#include "tools/command/MetricsText.h"
#include "tools/exitcodes.h"
#include "tools/spool/Feeder.h"
#include "tools/vintak-feed/BrokerWords.h"
#include "tools/vintak-feed/SpoolConversion.h"
#include "tools/vintak-feed/SpoolSubmission.h"
#include "tools/vintak-feed/commands.h"

namespace po = boost::program_options;

namespace {

constexpr const char* kAbout =
    "Converts every object that is moved into DIR/incoming, or written there and closed; those in\n"
    "DIR/incoming/priority first, the oldest first. An object is in one folder of DIR at a time: incoming,\n"
    "working, retry, and in the end done or failed, there with a NAME.reason.txt. The results of NAME.dcm "
    "are\n"
    "the folder NAME below the results, with the prefix \"object\", and appear there all at once. A line of\n"
    "JSON for every object is appended to DIR/events.jsonl. On SIGTERM or Ctrl-C what runs is finished; a\n"
    "second one ends at once.\n\n"
    "Exit status: 0 stopped, 2 usage, 4 the spool cannot be used; of --health: 0 healthy, 1 degraded "
    "(paused\n"
    "for want of a daemon or of space for results, or an object waits for longer than --late), 2 usage, 3 "
    "no\n"
    "feeder.";

void addOptions(CommandLine& line) {
    line.addOptions()("output,o", po::value<std::string>(), "folder of the results (default: DIR/results)")(
        "mask", po::value<int>()->default_value(3),
        "which files to write: 1 preview (.p.qi4), 2 stream (.t.qi4, .f.qi4), 4 no thumbnails, 16 no .raw; a "
        "sum")("no-optimize", "keep 16-bit frames whose values fit 8 bits wide")(
        "jobs", po::value<int>(), "objects converted at the same time (default: one for every processor)")(
        "settle", po::value<double>()->default_value(2),
        "seconds for which a file that was written in place must be closed and left alone; five times as "
        "many "
        "for one that was there already")(
        "tries", po::value<int>()->default_value(5),
        "of an object that met want of memory, silence or the end of its servant, or could not be read")(
        "delete-done", "delete objects that were converted; default: they go to DIR/done")(
        "submit",
        "put objects into a broker's queue instead, see vintak submit; their files go to DIR/submitted")(
        "sync", "have results and event reach the disk before the object leaves DIR/working")(
        "until-empty", "end when nothing is left that could be done")(
        "health", "tell how well the feeder is that runs with the same --run")(
        "late", po::value<double>()->default_value(600), "seconds; of --health")(
        "run", po::value<std::string>()->default_value(""),
        "folder of vintakd-spool.prom (default: the environment variable RUN, else /run/vintakd)");
    addBrokerOptions(line);
    line.takeRestAs("files");
}

int tellHealth(const std::string& run, double late) {
    try {
        const MetricsText metrics(run, "vintakd-spool");
        const double waiting = metrics.value("vintakd_spool_oldest_seconds");
        if (!metrics.isFresh("vintakd_spool_metrics_time_seconds")) {
            printf("no feeder: %s is %.0f s old\n", metrics.path().c_str(),
                   metrics.age("vintakd_spool_metrics_time_seconds"));
            return kNoDaemon;
        }
        const bool paused = metrics.value("vintakd_spool_paused") > 0;
        printf("%s\n", paused || waiting > late ? "degraded" : "healthy");
        if (paused) printf("problem: it pauses, there is no daemon or no place for results\n");
        if (waiting > late) printf("problem: the oldest object has been waiting for %.0f s\n", waiting);
        printf("waiting: %.0f, in work: %.0f, to be tried again: %.0f\n",
               metrics.value("vintakd_spool_objects{state=\"waiting\"}"),
               metrics.value("vintakd_spool_objects{state=\"working\"}"),
               metrics.value("vintakd_spool_objects{state=\"retry\"}"));
        return paused || waiting > late ? kSomeFailed : kAllDone;
    } catch (const NoMetrics& error) {
        printf("no feeder: %s\n", error.what());
        return kNoDaemon;
    }
}

FeederOptions feederOptions(const CommandLine& line) {
    FeederOptions options;
    const std::vector<std::string> words = line.list("files");
    if (words.size() != 1) throw UsageError("spool needs one folder");
    options.folder = absolutePath(words.front());
    while (options.folder.size() > 1 && options.folder.ends_with('/'))
        options.folder.pop_back();
    if (line.has("jobs") && line.get<int>("jobs") < 1) throw UsageError("--jobs is 1 or more");
    if (line.get<int>("tries") < 1) throw UsageError("--tries is 1 or more");
    if (!(line.get<double>("settle") >= 0)) throw UsageError("--settle is 0 or more");
    options.jobs = line.has("jobs") ? static_cast<size_t>(line.get<int>("jobs"))
                                    : std::max(1U, std::thread::hardware_concurrency());
    options.ahead = options.jobs;
    options.tries = static_cast<unsigned>(line.get<int>("tries"));
    options.settle = std::chrono::duration<double>(line.get<double>("settle"));
    options.keepDone = !line.has("delete-done");
    options.sync = line.has("sync");
    struct stat status {};
    const std::string run = runFolder(line.get<std::string>("run"));
    if (stat(run.c_str(), &status) == 0 && S_ISDIR(status.st_mode))
        options.metrics = run + "/vintakd-spool.prom";
    return options;
}

std::unique_ptr<SpoolWork> workFor(const CommandLine& line, const FeederOptions& options) {
    if (line.has("submit")) {
        if (line.has("output")) throw UsageError("-o is for who converts: vintak work");
        const BrokerOptions broker = brokerOptions(line);
#ifdef VINTAK_HAS_BROKER
        return std::make_unique<SpoolSubmission>(broker, options.folder);
#endif
    }
    std::string results =
        line.has("output") ? absolutePath(line.get<std::string>("output")) : options.folder + "/results";
    while (results.size() > 1 && results.ends_with('/'))
        results.pop_back();
    return std::make_unique<SpoolConversion>(SpoolConversionOptions{.segment = line.segment(),
                                                                    .results = results,
                                                                    .writeMask = line.get<int>("mask"),
                                                                    .needOptimize = !line.has("no-optimize"),
                                                                    .sync = options.sync},
                                             Interruption::came);
}

void say(const std::string& text) {
    fprintf(stderr, "vintak spool: %s\n", printable(text).c_str());
}

}  // namespace

int runSpool(const std::vector<std::string>& arguments) {
    CommandLine line("spool DIR [-o RESULTS] [options]", kAbout);
    addOptions(line);
    if (!line.parse(arguments)) return kAllDone;
    if (line.has("health"))
        return tellHealth(runFolder(line.get<std::string>("run")), line.get<double>("late"));
    const FeederOptions options = feederOptions(line);
    const Interruption interruption;
    const std::unique_ptr<SpoolWork> work = workFor(line, options);
    Feeder feeder(options, *work, say);
    if (line.has("until-empty"))
        feeder.runUntilEmpty(Interruption::came);
    else
        feeder.run(Interruption::came);
    return kAllDone;
}
