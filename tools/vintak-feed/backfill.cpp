#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <memory>
#include <thread>

#include "hsutils/Utils.h"
#include "hsutils/jsontext.h"
#include "tools/backfill/ArchiveWork.h"
#include "tools/backfill/Backfill.h"
#include "tools/backfill/Estimate.h"
#include "tools/backfill/LedgerReport.h"
#include "tools/command/CommandLine.h"
#include "tools/command/Interruption.h"
#include "tools/command/ListReader.h"
#include "tools/command/resultfiles.h"
#include "tools/exitcodes.h"
#include "tools/vintak-feed/BrokerWords.h"
#include "tools/vintak-feed/SpoolConversion.h"
#include "tools/vintak-feed/commands.h"
#ifdef VINTAK_HAS_BROKER
#include "tools/vintak-feed/BrokerHandover.h"
#endif

namespace po = boost::program_options;

namespace {

constexpr const char* kUsage =
    "backfill run [ARCHIVE] --ledger FILE [-o RESULTS] [options]\n"
    "       vintak backfill status | failures | retry | pause | resume | check --ledger FILE [options]";

constexpr const char* kAbout =
    "Converts every object of an archive, a folder with folders in it, and keeps a ledger of them: run "
    "lists\n"
    "the archive, or reads --files-from, and converts meanwhile; started again after any end it goes on. "
    "The\n"
    "results of ARCHIVE/a/b.dcm are the folder RESULTS/a/b.dcm, with the prefix \"object\", and appear there "
    "all\n"
    "at once. Several runs may share a ledger on one host; over hosts each has a ledger of its own, and a\n"
    "--shard. On SIGTERM or Ctrl-C what runs is finished; a second one ends at once.\n"
    "status tells how it stands, failures which objects failed, retry has them converted again, pause holds\n"
    "all runs until resume, check looks through the ledger.\n\n"
    "Exit status: 0 all done, 1 some failed, 2 usage, 4 the ledger or the archive cannot be used, 130\n"
    "interrupted.";

void addOptions(CommandLine& line) {
    line.addOptions()("ledger", po::value<std::string>(), "the ledger; run makes it where there is none")(
        "output,o", po::value<std::string>(), "folder of the results; a ledger knows its own")(
        "mask", po::value<int>()->default_value(3),
        "which files to write: 1 preview (.p.qi4), 2 stream (.t.qi4, .f.qi4), 4 no thumbnails, 16 no .raw; a "
        "sum")("packed", "write the files of all frames of an object into a pack")(
        "no-optimize", "keep 16-bit frames whose values fit 8 bits wide")(
        "sync", "have results reach the disk before they are seen")(
        "files-from", po::value<std::string>(),
        "objects to convert, below ARCHIVE or relative to it: a name a line, - for standard input")(
        "null,0", "each name of --files-from ends with a NUL")(
        "all", "convert files too that do not begin as a DICOM file does")(
        "relist", "go through the archive again for what is new or was changed")(
        "shard", po::value<std::string>(),
        "INDEX/COUNT: only studies whose folder's hash modulo COUNT is INDEX, from 0")(
        "study-depth", po::value<unsigned>(),
        "a study's folder is the first so many below ARCHIVE; 0, the default: a file's own folder")(
        "jobs", po::value<int>(), "objects converted at the same time (default: one for every servant)")(
        "batch", po::value<int>()->default_value(1000), "objects claimed at a time")(
        "tries", po::value<int>()->default_value(5),
        "of an object that met want of memory, silence or the end of its servant, or could not be read")(
        "rate", po::value<double>()->default_value(0), "objects a second at the most; 0: as many as go")(
        "hours", po::value<std::string>(), "when to work, in local time: 20:00-06:00[,12:00-13:00]")(
        "dry-run", "tell what it would take, from a sample that is converted and removed again")(
        "sample", po::value<int>()->default_value(200), "objects of --dry-run, about")(
        "low-water", po::value<int>()->default_value(200),
        "with --broker: put objects into its queue when so many wait there or fewer, up to twice as many")(
        "patience", po::value<double>()->default_value(7200),
        "seconds after which an object in a broker's queue has failed that has no results")(
        "class", po::value<std::string>()->default_value(""), "of errors; of failures and retry")(
        "json", "status, failures, --dry-run: print JSON");
    addBrokerOptions(line);
    line.takeRestAs("files");
}

void say(const std::string& text) {
    fprintf(stderr, "vintak backfill: %s\n", printable(text).c_str());
}

std::string folderPath(const std::string& word) {
    std::string path = absolutePath(word);
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    return path;
}

std::string ledgerPath(const CommandLine& line) {
    if (!line.has("ledger")) throw UsageError("backfill needs --ledger");
    return absolutePath(line.get<std::string>("ledger"));
}

int atLeastOne(const CommandLine& line, const char* name) {
    if (line.get<int>(name) < 1) throw UsageError(std::string("--") + name + " is 1 or more");
    return line.get<int>(name);
}

size_t jobsOf(const CommandLine& line) {
    if (line.has("jobs")) return static_cast<size_t>(atLeastOne(line, "jobs"));
    try {
        return Session(line.segment()).channels();
    } catch (...) {  // not there yet, or busy
        return std::max(1U, std::thread::hardware_concurrency());
    }
}

BackfillOptions backfillOptions(const CommandLine& line) {
    BackfillOptions options;
    constexpr size_t kAhead = 4;  ///< nobody is in a hurry here, and so the loop wakes seldom
    options.jobs = jobsOf(line);
    options.ahead = kAhead * options.jobs;
    options.batch = std::max(static_cast<size_t>(atLeastOne(line, "batch")), options.jobs);
    options.tries = static_cast<unsigned>(atLeastOne(line, "tries"));
    options.rate = line.get<double>("rate");
    options.patience = static_cast<int64_t>(line.get<double>("patience"));
    if (!(options.rate >= 0)) throw UsageError("--rate is 0 or more");
    if (options.patience < 1) throw UsageError("--patience is 1 or more");
    if (line.has("hours")) options.hours = Hours(line.get<std::string>("hours"));
    return options;
}

Shard shardOf(const CommandLine& line) {
    const uint32_t depth = line.has("study-depth") ? line.get<unsigned>("study-depth") : 0;
    return Shard::parse(line.has("shard") ? line.get<std::string>("shard") : "0/1", depth);
}

NameSource listOf(const CommandLine& line) {
    if (!line.has("files-from")) return nullptr;
    return [list = std::make_shared<ListReader>(line.get<std::string>("files-from"),
                                                line.has("null") ? '\0' : '\n')](std::string& name) {
        return list->next(name);
    };
}

SpoolConversionOptions conversionOptions(const CommandLine& line, const std::string& results) {
    return {.segment = line.segment(),
            .results = results,
            .writeMask = line.get<int>("mask") | (line.has("packed") ? kPackedMask : 0),
            .needOptimize = !line.has("no-optimize"),
            .sync = line.has("sync")};
}

/// Beside the results, where it costs what they cost; removed with the object.
class ScratchFolder {
public:
    explicit ScratchFolder(const std::string& results)
        : m_path(results + "/.dry-run-" + std::to_string(getpid())) {}
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

/// What a ledger does every second, which stops all others on the disk for a moment.
class LedgerBeat {
public:
    explicit LedgerBeat(const std::string& path)
        : m_file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)) {}
    ~LedgerBeat() {
        if (m_file >= 0) close(m_file);
    }
    LedgerBeat(const LedgerBeat&) = delete;
    LedgerBeat& operator=(const LedgerBeat&) = delete;
    void once() const {
        constexpr size_t kBytes = 65536;
        const std::string page(kBytes, '\0');
        if (write(m_file, page.data(), page.size()) > 0) (void)fdatasync(m_file);
    }

private:
    int m_file;
};

int dryRun(const CommandLine& line, const std::vector<std::string>& words) {
    if (words.size() != 2 || !line.has("output")) throw UsageError("--dry-run needs an archive and --output");
    const BackfillOptions options = backfillOptions(line);
    const std::string archive = folderPath(words[1]), results = folderPath(line.get<std::string>("output"));
    const auto most = static_cast<size_t>(atLeastOne(line, "sample"));
    const Interruption interruption;
    constexpr size_t kPasses = 20;  ///< of other objects each, where they take a moment only
    Sample sample(shardOf(line), kPasses * most, Interruption::came);
    if (const NameSource list = listOf(line)) {
        std::string refused;
        readArchiveList(archive, list, sample, refused);
    } else {
        walkArchive(archive, results, sample);
    }
    const ScratchFolder scratch(results);
    SpoolConversion conversion(conversionOptions(line, scratch.path()), Interruption::came);
    ArchiveWork work(conversion, archive, line.has("all"));
    // What others wrote a moment ago would be taken for ours.
    (void)settleDisk(scratch.path());
    LedgerBeat beat(scratch.path() + "/beat");
    Estimate found = estimate(sample, archive, work, options.jobs, most, [&beat] { beat.once(); });
    if (Interruption::came()) return kInterrupted;
    limitByDisk(found, diskPace(found.sampled, settleDisk(scratch.path())));
    const double clock = calendarSeconds(found, options.rate, options.hours);
    fputs((line.has("json") ? jsonOf(found, clock) : textOf(found, clock)).c_str(), stdout);
    return kAllDone;
}

/// What is done with objects: they are converted, or handed to a broker where one is named.
std::unique_ptr<SpoolWork> workFor(const CommandLine& line, const std::string& results,
                                   BackfillOptions& options) {
    options.isDone = [results](const std::string& path, int64_t at) {
        return SpoolConversion::isDone(results, keyOf(path), at);
    };
#ifdef VINTAK_HAS_BROKER
    if (line.has("broker")) {
        constexpr size_t kTogether = 64;  ///< that the broker confirms in one
        const auto low = static_cast<uint64_t>(atLeastOne(line, "low-water"));
        auto handover = std::make_unique<BrokerHandover>(brokerOptions(line));
        options.jobs = kTogether;
        options.ahead = 0;
        options.room = [low, broker = handover.get()]() -> size_t {
            const uint64_t depth = broker->depth();
            return depth <= low ? 2 * low - depth : 0;
        };
        return handover;
    }
#endif
    // cppcheck-suppress duplicateCondition  // the one before is not always there
    if (line.has("broker")) (void)brokerOptions(line);  // says that there is no library for it
    auto conversion = std::make_unique<SpoolConversion>(conversionOptions(line, results), Interruption::came);
    options.onGone = [to = conversion.get()](pid_t pid) { return to->freeServantsOf(pid); };
    return conversion;
}

// A ledger keeps its names: one that is begun with a mistyped one would refuse the right one.
void checkNames(const LedgerHead& head, bool makesResults) {
    std::error_code error;
    if (!head.archive.empty() && !std::filesystem::is_directory(head.archive, error))
        throw std::runtime_error("the archive " + head.archive + ": " +
                                 (error ? error.message() : "not a folder"));
    if (!makesResults || head.archive.empty() || head.results.empty()) return;
    std::filesystem::create_directories(head.results, error);
    if (error) throw std::runtime_error("the results " + head.results + ": " + error.message());
}

int runLedger(const CommandLine& line, const std::vector<std::string>& words) {
    if (words.size() > 2) throw UsageError("backfill run takes one archive");
    LedgerHead head{.archive = words.size() == 2 ? folderPath(words[1]) : "",
                    .results = line.has("output") ? folderPath(line.get<std::string>("output")) : "",
                    .shard = ""};
    if (line.has("shard") || line.has("study-depth") || !head.archive.empty())
        head.shard = shardOf(line).text();
    BackfillOptions options = backfillOptions(line);
    const std::string path = ledgerPath(line);
    if (!head.archive.empty() && head.archive == head.results)
        throw UsageError("the results cannot be the archive");
    if (std::error_code error; !std::filesystem::exists(path, error)) checkNames(head, !line.has("broker"));
    const Interruption interruption;
    Ledger ledger(openLedger(path, head));
    options.archive = head.archive;
    const std::unique_ptr<SpoolWork> inner = workFor(line, head.results, options);
    ArchiveWork work(*inner, head.archive, line.has("all"));
    const Listing listing({.ledger = path,
                           .archive = head.archive,
                           .results = head.results,
                           .shard = Shard::ofText(head.shard),
                           .list = listOf(line),
                           .again = line.has("relist")},
                          say, Interruption::came);
    try {
        Backfill(options, ledger, listing, work, say).run(Interruption::came);
    } catch (...) {
        // The listing may wait for names that nobody will send any more. A second signal would end us at
        // once.
        if (!Interruption::came()) (void)std::raise(SIGTERM);
        // cppcheck-suppress duplicateBreak  // the signal is taken by another thread
        throw;
    }
    if (Interruption::came()) return kInterrupted;
    if (listing.isOver() && !listing.failure().empty()) return kAllFailed;
    return ledger.count(ObjectState::failed) > 0 ? kSomeFailed : kAllDone;
}

int tellStatus(Database& ledger, bool json) {
    const LedgerReport report = reportOf(ledger, std::time(nullptr));
    fputs((json ? jsonOf(report) : textOf(report)).c_str(), stdout);
    return kAllDone;
}

int tellAllFailures(Database& ledger, const std::string& errorClass, bool json) {
    tellFailures(
        ledger, errorClass, [json](const auto& path, const auto& kind, const auto& cause, int64_t tries) {
            if (json)
                printf("{\"path\":%s,\"class\":%s,\"cause\":%s,\"tries\":%lld}\n", jsonText(path).c_str(),
                       jsonText(kind).c_str(), jsonText(cause).c_str(), static_cast<long long>(tries));
            else
                printf("%s: %s: %s\n", printable(path).c_str(), kind.c_str(), printable(cause).c_str());
        });
    return kAllDone;
}

int check(Database& ledger) {
    const std::string faults = faultsOf(ledger);
    if (!faults.empty()) throw LedgerError("the ledger " + ledger.path() + " is damaged: " + faults);
    puts("the ledger is whole");
    return kAllDone;
}

void retry(Database& ledger, const std::string& errorClass) {
    const int64_t folders = retryFolders(ledger, errorClass);
    printf("%lld objects wait again\n", static_cast<long long>(retryFailures(ledger, errorClass)));
    if (folders > 0)
        printf("%lld folders that could not be read are listed by the next run\n",
               static_cast<long long>(folders));
}

int act(const std::string& action, const CommandLine& line) {
    const bool onlyReads = action == "failures" || action == "check";
    // A reader of a ledger that nobody writes must be able to make the file that all share.
    Database ledger = openLedger(ledgerPath(line), onlyReads ? Database::Mode::read : Database::Mode::write);
    const auto errorClass = line.get<std::string>("class");
    if (!errorClass.empty() && errorClass != nameOf(errorClassNamed(errorClass)))
        throw UsageError("there is no class of errors \"" + errorClass + "\"");
    if (action == "status") return tellStatus(ledger, line.has("json"));
    if (action == "failures") return tellAllFailures(ledger, errorClass, line.has("json"));
    if (action == "check") return check(ledger);
    if (action == "retry")
        retry(ledger, errorClass);
    else
        setSetting(ledger, "paused", action == "pause" ? "1" : "");
    return kAllDone;
}

}  // namespace

int runBackfill(const std::vector<std::string>& arguments) {
    CommandLine line(kUsage, kAbout);
    addOptions(line);
    if (!line.parse(arguments)) return kAllDone;
    const std::vector<std::string> words = line.list("files");
    const std::string action = words.empty() ? "" : words.front();
    try {
        if (action == "run" && line.has("dry-run")) return dryRun(line, words);
        if (action == "run") return runLedger(line, words);
        for (const char* known : {"status", "failures", "retry", "pause", "resume", "check"})
            if (action == known && words.size() == 1) return act(action, line);
    } catch (const std::invalid_argument& error) {
        throw UsageError(error.what());
    }
    throw UsageError("backfill needs one of run, status, failures, retry, pause, resume, check");
}
