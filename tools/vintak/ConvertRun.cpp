#include "tools/vintak/ConvertRun.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <thread>

#include "tools/command/Interruption.h"
#include "tools/command/ListReader.h"

namespace fs = std::filesystem;

namespace {

double now() {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(sinceEpoch).count();
}

Outcome refusal(std::string text, ErrorClass kind) {
    return {.text = std::move(text), .kind = kind};
}

/// Makes the folders of the results; why that failed, empty when it did not.
std::string makePlace(const Request& request) {
    for (const std::string& prefix : {request.outputPrefix, request.cachePrefix}) {
        const std::string folder = vintakd::folderOfPrefix(prefix);
        std::error_code error;
        fs::create_directories(folder, error);
        if (error) return "the folder " + folder + " cannot be made: " + error.message();
    }
    return {};
}

}  // namespace

std::string resultName(const std::string& file) {
    const fs::path path(file);
    return path.extension() == ".dcm" ? path.stem().string() : path.filename().string();
}

ConvertRun::ConvertRun(const ConvertOptions& options, Session& session)
    : m_options(options),
      m_session(session),
      m_spread(session, Interruption::came),
      m_report(options.json),
      m_source(source()),
      m_start(now()) {
    if (options.failedFolder.empty()) return;
    m_failed.emplace(options.failedFolder);
    m_source.leaveOut(options.failedFolder);
}

ObjectSource ConvertRun::source() const {
    if (m_options.list.empty()) return {wordsOf(m_options.words), false};
    return {wordsOfList(m_options.list, m_options.separator), true};
}

int ConvertRun::run() {
    m_rule = spreadRule();
    const Interruption interruption;
    std::atomic<bool> over{false};
    std::thread counting([&] {
        if (!m_report.progress().isOnTerminal()) return;
        if (!m_options.list.empty() && !ListReader::isRepeatable(m_options.list)) return;
        ObjectSource objects = source();
        if (m_failed) objects.leaveOut(m_options.failedFolder);
        size_t count = 0;
        for (FoundObject object; !over && objects.next(object);)
            ++count;
        if (!over) m_report.progress().setTotal(count);
    });
    Conversion conversion([this](ConversionJob& job) { return next(job); },
                          [this](const ConversionJob& job) { convert(job); });
    const auto end = [&] {
        over = true;
        counting.join();
    };
    try {
        const size_t least = leastJobs();
        // Beyond some for each processor they wait for one another rather than for a disk.
        constexpr size_t kForEach = 4;
        conversion.run(least, m_options.jobs > 0 ? jobs() : std::min(kForEach * least, jobs()));
    } catch (const NoDaemon&) {
        end();
        m_report.progress().say(summary() + "; the rest was not");
        throw;
    } catch (const std::exception& error) {
        end();
        m_report.progress().say(std::string("vintak: ") + error.what());
        m_report.progress().say(summary() + "; the rest was not");
        return m_report.succeeded() > 0 ? kSomeFailed : kAllFailed;
    }
    end();
    if (Interruption::came()) tellWhatIsLeft();
    fprintf(m_options.json ? stderr : stdout, "%s\n", summary().c_str());
    if (m_report.objects() == 0 && m_options.list.empty())
        throw std::runtime_error("there is no DICOM object in " + m_options.words.front());
    return Interruption::came() ? kInterrupted : m_report.exitCode();
}

bool ConvertRun::next(ConversionJob& job) {
    if (Interruption::came() || !m_source.next(job.object)) return false;
    job.request = requestFor(job.object);
    if (job.object.problem.empty() &&
        !m_names.insert(std::hash<std::string>{}(job.request.outputPrefix)).second)
        job.object.problem =
            "another object of this run has written " + job.request.outputPrefix + " already";
    return true;
}

size_t ConvertRun::leastJobs() const {
    return std::min<size_t>(std::max(std::thread::hardware_concurrency(), 1U), jobs());
}

/// Where fewer objects are named than are converted at the same time, each may keep several servants busy.
SpreadRule ConvertRun::spreadRule() const {
    if (m_options.frame > 0) return {};
    if (m_options.parts > 0) return {.parts = m_options.parts, .leastBytes = 0, .leastFrames = 1};
    const auto isFolder = [](const std::string& word) { return vintakd::identifyFolder(word).inode != 0; };
    const std::vector<std::string>& words = m_options.words;
    if (!m_options.list.empty() || std::any_of(words.begin(), words.end(), isFolder)) return {};
    return {.parts = jobs() / words.size()};
}

Request ConvertRun::requestFor(const FoundObject& object) const {
    const std::string name = object.folder + resultName(object.path);
    Request request;
    request.inputFile = absolutePath(object.path);
    request.outputPrefix = m_options.output + name;
    request.cachePrefix = m_options.cache + name;
    request.needOptimize = m_options.needOptimize;
    request.noCached = m_options.noCache;
    request.writeMask = m_options.writeMask;
    request.specificFrame = m_options.frame;
    return request;
}

void ConvertRun::convert(const ConversionJob& job) {
    ConversionTime time{.start = now()};
    if (!job.object.problem.empty()) return fail(job, refusal(job.object.problem, ErrorClass::request), time);
    if (m_options.skipExisting && hasCompleteResults(job.request, m_session)) return m_report.skipped(job);
    if (job.object.found) {
        const std::string problem = makePlace(job.request);
        if (!problem.empty()) return fail(job, refusal(problem, ErrorClass::output), time);
    }
    const Outcome outcome = m_spread.ask(job.request, m_rule);
    time.seconds = now() - time.start;
    if (outcome.done && m_options.packed && !fs::exists(job.request.outputPrefix + ".index"))
        return fail(job, refusal("the daemon is older and wrote separate files", ErrorClass::other), time);
    if (outcome.givenUp)
        m_report.left(job.object);
    else if (outcome.done)
        m_report.converted(job, outcome, time);
    else
        fail(job, outcome, time);
}

void ConvertRun::fail(const ConversionJob& job, const Outcome& outcome, const ConversionTime& time) {
    std::string moved;
    if (m_failed && FailedFolder::isForIt(outcome.kind)) {
        try {
            moved =
                m_failed->take(absolutePath(job.object.path), job.object.folder, outcome.kind, outcome.text);
        } catch (const std::runtime_error& error) {
            m_report.progress().say(std::string("vintak: not put aside: ") + error.what());
        }
    }
    m_report.failed(job, outcome, time, moved);
}

// What standard input would still say nobody waits for.
void ConvertRun::tellWhatIsLeft() {
    const bool isListed = !m_options.list.empty();
    if (!isListed)
        for (FoundObject object; m_source.next(object);)
            m_report.left(object);
    const size_t left = m_report.leftOver();
    std::string text = "interrupted; what follows in the list is left";
    if (!isListed || left > 0) text = "interrupted; " + std::to_string(left) + " left";
    if (isListed && left > 0) text += ", and what follows in the list";
    m_report.progress().say(text);
}

std::string ConvertRun::summary() const {
    char time[48];
    (void)snprintf(time, sizeof time, " in %.2f s", now() - m_start);
    return m_report.summary() + time;
}
