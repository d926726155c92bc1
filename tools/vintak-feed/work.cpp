#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "hsutils/Utils.h"
#include "tools/broker/JobWorker.h"
#include "tools/command/CommandLine.h"
#include "tools/command/Interruption.h"
#include "tools/command/MetricsText.h"
#include "tools/exitcodes.h"
#include "tools/vintak-feed/BrokerWords.h"
#include "tools/vintak-feed/SpoolConversion.h"
#include "tools/vintak-feed/commands.h"
#include "vintakd/config/configcheck.h"

namespace po = boost::program_options;

namespace {

constexpr const char* kWriter = "vintakd-work";
constexpr double kBrokerTimeout = 1800;  ///< s, RabbitMQ's own default

constexpr const char* kAbout =
    "Takes jobs from a broker's queue (RabbitMQ) and has the daemon of this host convert them, as many at a\n"
    "time as it has servants. A job is acknowledged when its results, the folder NAME below the results "
    "with\n"
    "the prefix \"object\", are complete: they appear there all at once. What may do better later is tried "
    "again\n"
    "after a pause, --tries times in all; then, and at once where it never will, it goes to the dead "
    "letters,\n"
    "with the cause in its headers. Every result is announced on an exchange. A broker or a daemon that is "
    "not\n"
    "there is waited for. On SIGTERM or Ctrl-C what runs is finished; a second one ends at once.\n\n"
    "Exit status: 0 stopped, 2 usage, 4 the results' folder or a file for the broker cannot be used; of\n"
    "--health: 0 healthy, 1 degraded (no broker, no daemon, or no space for results), 2 usage, 3 no worker.";

void addOptions(CommandLine& line) {
    line.addOptions()("output,o", po::value<std::string>(), "folder of the results")(
        "mask", po::value<int>()->default_value(3),
        "which files to write: 1 preview (.p.qi4), 2 stream (.t.qi4, .f.qi4), 4 no thumbnails, 16 no .raw; a "
        "sum")("no-optimize", "keep 16-bit frames whose values fit 8 bits wide")(
        "sync", "have results reach the disk before the job is acknowledged")(
        "jobs", po::value<int>(), "jobs at the same time (default: one for every servant of the daemon)")(
        "ahead", po::value<int>(),
        "jobs that are held beyond those, for servants that become free (default: as many)")(
        "tries", po::value<int>()->default_value(5),
        "of a job whose object cannot be read, or met want of memory, silence or the end of its servant")(
        "inputs", po::value<std::vector<std::string>>(),
        "a folder; objects that lie elsewhere are refused; may come again (default: none is)")(
        "submitted", po::value<std::vector<std::string>>(),
        "the folder \"submitted\" of a spool that submits: objects right in it are deleted when they are "
        "done")("name", po::value<std::string>(), "of this worker, in what it tells (default: HOST/SEGMENT)")(
        "broker-timeout", po::value<double>()->default_value(kBrokerTimeout),
        "seconds, consumer_timeout of the broker: to be longer than the jobs that are held may take")(
        "until-empty", "end when no job is left, nor one that is to be tried again")(
        "health", "tell how well the worker is that runs with the same --run")(
        "run", po::value<std::string>()->default_value(""),
        "folder of vintakd-work.prom (default: the environment variable RUN, else /run/vintakd)");
    addBrokerOptions(line);
}

int tellHealth(const std::string& run) {
    try {
        const MetricsText metrics(run, kWriter);
        if (!metrics.isFresh("vintakd_work_metrics_time_seconds")) {
            printf("no worker: %s is %.0f s old\n", metrics.path().c_str(),
                   metrics.age("vintakd_work_metrics_time_seconds"));
            return kNoDaemon;
        }
        const bool isConnected = metrics.value("vintakd_work_connected") > 0;
        const bool isPaused = metrics.value("vintakd_work_paused") > 0;
        printf("%s\n", isConnected && !isPaused ? "healthy" : "degraded");
        if (!isConnected) printf("problem: there is no broker\n");
        if (isPaused) printf("problem: it pauses, there is no daemon or no place for results\n");
        printf("in work: %.0f, done: %.0f\n", metrics.value("vintakd_work_jobs{state=\"working\"}"),
               metrics.value("vintakd_work_done_total"));
        return isConnected && !isPaused ? kAllDone : kSomeFailed;
    } catch (const NoMetrics& error) {
        printf("no worker: %s\n", error.what());
        return kNoDaemon;
    }
}

std::string nameOfWorker(const CommandLine& line) {
    if (line.has("name")) return line.get<std::string>("name");
    std::array<char, 256> host{};
    if (gethostname(host.data(), host.size() - 1) != 0) host[0] = '\0';
    return std::string(host.data()) + "/" + line.segment();
}

JobWorkerOptions workerOptions(const CommandLine& line) {
    JobWorkerOptions options{.broker = brokerOptions(line), .name = nameOfWorker(line)};
    constexpr int kMostJobs = 1000;
    if (line.has("jobs") && (line.get<int>("jobs") < 1 || line.get<int>("jobs") > kMostJobs))
        throw UsageError("--jobs is 1 to 1000");
    if (line.get<int>("tries") < 1) throw UsageError("--tries is 1 or more");
    if (!line.has("output")) throw UsageError("work needs -o, the folder of the results");
    if (line.has("ahead") && (line.get<int>("ahead") < 0 || line.get<int>("ahead") > kMostJobs))
        throw UsageError("--ahead is 0 to 1000");
    if (line.has("jobs")) options.jobs = static_cast<size_t>(line.get<int>("jobs"));
    if (line.has("ahead")) options.ahead = static_cast<size_t>(line.get<int>("ahead"));
    options.tries = static_cast<unsigned>(line.get<int>("tries"));
    struct stat status {};
    const std::string run = runFolder(line.get<std::string>("run"));
    if (stat(run.c_str(), &status) == 0 && S_ISDIR(status.st_mode))
        options.metrics = run + "/" + kWriter + ".prom";
    return options;
}

std::vector<std::string> folders(const CommandLine& line, const char* option) {
    std::vector<std::string> all = line.list(option);
    for (std::string& folder : all)
        folder = absolutePath(folder);
    return all;
}

void say(const std::string& text) {
    fprintf(stderr, "vintak work: %s\n", printable(text).c_str());
}

// A broker takes a job away that is held for longer than its limit; the servant's deadline, which the
// daemon's configuration sets, must come first for all that are held.
void checkTimeout(double brokerTimeout, size_t jobs) {
    const LimitValues limits = checkConfiguration(getenv("CONF"), getenv("DOWNLOAD_HOME")).limits;
    const double longest = static_cast<double>(limits.deadlineSeconds) * static_cast<double>(jobs);
    if (limits.deadlineSeconds != 0 && longest < brokerTimeout) return;
    say("warning: " + std::to_string(jobs) + " jobs of up to " + std::to_string(limits.deadlineSeconds) +
        " s (DEADLINE_SECONDS) may be held for longer than the broker allows, " +
        std::to_string(static_cast<long>(brokerTimeout)) +
        " s: set its consumer_timeout above that, and --broker-timeout to the same");
}

}  // namespace

int runWork(const std::vector<std::string>& arguments) {
    CommandLine line("work -o RESULTS [--broker ADDRESS] [options]", kAbout);
    addOptions(line);
    if (!line.parse(arguments)) return kAllDone;
    if (line.has("health")) return tellHealth(runFolder(line.get<std::string>("run")));
    const JobWorkerOptions options = workerOptions(line);
    std::string results = absolutePath(line.get<std::string>("output"));
    while (results.size() > 1 && results.ends_with('/'))
        results.pop_back();
    const Interruption interruption;
    SpoolConversion conversion({.segment = line.segment(),
                                .results = results,
                                .writeMask = line.get<int>("mask"),
                                .needOptimize = !line.has("no-optimize"),
                                .sync = line.has("sync")},
                               Interruption::came);
    JobInputs inputs({.folders = folders(line, "inputs"), .submitted = folders(line, "submitted")},
                     conversion);
    size_t checked = 0;
    const auto servants = [&] {
        const size_t count = conversion.servants();
        const size_t jobs = options.jobs > 0 ? options.jobs : count;
        if (count > 0 && jobs != checked)
            checkTimeout(line.get<double>("broker-timeout"), jobs + options.ahead.value_or(jobs));
        if (count > 0) checked = jobs;
        return count;
    };
    JobWorker worker(options, inputs, servants, say);
    worker.run(Interruption::came, line.has("until-empty"));
    return kAllDone;
}
