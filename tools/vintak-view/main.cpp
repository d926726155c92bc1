#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <thread>

#include "hsutils/Utils.h"
#include "tools/command/CommandLine.h"
#include "tools/command/Conversion.h"
#include "tools/command/Interruption.h"
#include "tools/command/ObjectSource.h"
#include "tools/command/Program.h"
#include "tools/command/ProgressBar.h"
#include "tools/command/Session.h"
#include "tools/exitcodes.h"
#include "tools/view/PageServer.h"
#include "tools/view/exportsite.h"
#include "tools/view/viewedobject.h"

namespace po = boost::program_options;
namespace fs = std::filesystem;

namespace {

/// A folder of its own below TMPDIR or /tmp, removed with all that is in it.
class WorkFolder {
public:
    WorkFolder() {
        const char* base = std::getenv("TMPDIR");
        m_path = std::string(base && *base ? base : "/tmp") + "/vintak-view-XXXXXX";
        if (mkdtemp(m_path.data()) == nullptr)
            throw std::runtime_error("no temporary folder can be made in " +
                                     fs::path(m_path).parent_path().string());
    }
    ~WorkFolder() {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

/// Where the page's files are: VINTAK_PAGE, or the folder that belongs to this program as it is installed or
/// built.
std::string pageFolder() {
    if (const char* folder = std::getenv("VINTAK_PAGE")) {
        if (fs::exists(fs::path(folder) / "index.html")) return folder;
        throw std::runtime_error(std::string("VINTAK_PAGE names no page: there is no ") + folder +
                                 "/index.html");
    }
    const fs::path program = fs::read_symlink("/proc/self/exe").parent_path();
    for (const char* folder : {VINTAK_PAGE_FOLDER, "../../../../web/viewer/dist"}) {
        const fs::path candidate = (program / folder).lexically_normal();
        if (fs::exists(candidate / "index.html")) return candidate.string();
    }
    throw std::runtime_error("the viewer's page is not installed (VINTAK_PAGE may name its folder)");
}

/// The prefix under which the results of an object lie when somebody converted it where it is.
std::string prefixBeside(const std::string& path) {
    const fs::path object(path);
    return object.extension() == ".dcm" || object.extension() == ".desc" || object.extension() == ".index"
               ? (object.parent_path() / object.stem()).string()
               : path;
}

/// The objects that the words of the command name. Throws std::runtime_error for what does not exist.
std::vector<std::string> findObjects(const std::vector<std::string>& words) {
    std::vector<std::string> paths;
    ObjectSource source(wordsOf(words), false);
    for (FoundObject object; source.next(object);) {
        if (!fs::exists(object.path)) throw std::runtime_error("there is no " + object.path);
        if (object.problem.empty())
            paths.push_back(object.path);
        else
            std::cerr << printable(object.path) << ": " << printable(object.problem) << "\n";
    }
    return paths;
}

/// Converts objects and notes why those that failed did; no more of them after an interruption. The place of
/// a job is that among `objects`.
void convert(std::vector<ConversionJob> jobs, std::vector<view::ViewedObject>& objects,
             const std::string& segment) {
    Session session(segment);
    ProgressBar progress(jobs.size());
    size_t taken = 0;
    const auto next = [&](ConversionJob& job) {
        if (taken == jobs.size() || Interruption::came()) return false;
        job = jobs[taken++];
        return true;
    };
    Conversion conversion(next, [&](const ConversionJob& job) {
        view::ViewedObject& object = objects[job.place];
        const Outcome outcome = session.ask(job.request, Interruption::came);
        if (outcome.givenUp) return;
        if (outcome.done)
            object = view::describeResults(object.name, object.prefix);
        else
            object.error = outcome.text;
        if (!object.error.empty())
            progress.failed(job.object.path, object.error);
        else if (outcome.warnings.empty())
            progress.succeeded();
        else
            progress.warned(job.object.path, outcome.warnings);
    });
    conversion.run(std::min(session.channels(), jobs.size()));
}

/// The objects of the command, those without results converted into `folder`.
std::vector<view::ViewedObject> prepare(const std::vector<std::string>& paths, const std::string& folder,
                                        const std::string& segment) {
    std::vector<view::ViewedObject> objects(paths.size());
    std::vector<ConversionJob> missing;
    for (size_t i = 0; i < paths.size(); ++i) {
        const std::string prefix = prefixBeside(paths[i]), name = fs::path(paths[i]).filename().string();
        if (paths[i].ends_with(".desc") || paths[i].ends_with(".index") ||
            view::isConverted(paths[i], prefix)) {
            objects[i] = view::describeResults(name, prefix, paths[i].ends_with(".index"));
            if (!objects[i].error.empty())
                std::cerr << printable(paths[i]) << ": " << printable(objects[i].error) << "\n";
            continue;
        }
        const std::string output = folder + "/" + std::to_string(i) + "/o";
        fs::create_directory(fs::path(output).parent_path());
        Request request;
        request.inputFile = absolutePath(paths[i]);
        request.outputPrefix = request.cachePrefix = output;
        request.writeMask = 3;
        objects[i] = {.name = name, .prefix = output};
        missing.push_back({.place = i, .object = {.path = paths[i]}, .request = std::move(request)});
    }
    if (!missing.empty()) convert(std::move(missing), objects, segment);
    return objects;
}

/// Starts the desktop's browser and does not wait for it; no browser is no failure.
void openBrowser(const std::string& address) {
    std::string program = "xdg-open", argument = address;
    char* const arguments[] = {program.data(), argument.data(), nullptr};
    pid_t pid = 0;
    if (posix_spawnp(&pid, program.c_str(), nullptr, nullptr, arguments, environ) != 0)
        std::cerr << "vintak: no browser could be started (xdg-open is not installed)\n";
}

/// SIGINT and SIGTERM, which wait to be taken from here on in every thread.
sigset_t holdEndingSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

int tellInterruption() {
    std::cerr << "vintak: interrupted; nothing was shown\n";
    return kInterrupted;
}

int exportTo(const std::string& folder, const std::string& page,
             const std::vector<view::ViewedObject>& objects) {
    try {
        view::exportSite(page, objects, folder, Interruption::came);
        return kAllDone;
    } catch (const std::runtime_error&) {
        if (!Interruption::came()) throw;
    }
    return tellInterruption();
}

int runView(const std::vector<std::string>& arguments) {
    CommandLine line(
        "view FILE|FOLDER... [--no-open] [options]",
        "Shows objects in the browser: converts what has no results beside it yet, serves the page and\n"
        "the results to this host alone, and prints the address. A FILE is an object, or the .desc of one\n"
        "that was converted, or the .index of a pack; of a FOLDER all objects are shown. Ends on Ctrl-C and "
        "removes what it made.\n\n"
        "Exit status: 0 it was shown, 2 usage, 3 no daemon, 4 nothing to show, 5 not allowed, 130 "
        "interrupted\n"
        "before that.");
    line.addOptions()("no-open", "only print the address")("port", po::value<int>()->default_value(0),
                                                           "port of the address (default: any that is free)")(
        "export", po::value<std::string>(),
        "serve nothing: make this folder, new or empty, a site that any web server can serve");
    line.takeRestAs("files");
    if (!line.parse(arguments)) return kAllDone;
    const std::vector<std::string> words = line.list("files");
    if (words.empty()) throw UsageError("view needs a file or a folder");
    if (line.get<int>("port") < 0 || line.get<int>("port") > 65535) throw UsageError("a port is 1 to 65535");

    const std::string page = pageFolder();
    const std::vector<std::string> paths = findObjects(words);
    if (paths.empty()) throw std::runtime_error("there is no DICOM object in " + words.front());
    const WorkFolder folder;
    std::vector<view::ViewedObject> objects;
    sigset_t signals;
    {
        const Interruption interruption;
        objects = prepare(paths, folder.path(), line.segment());
        const auto canBeSeen = [](const view::ViewedObject& object) { return object.error.empty(); };
        const bool isAny = std::any_of(objects.begin(), objects.end(), canBeSeen);
        if (!Interruption::came() && !isAny) return kAllFailed;
        if (!Interruption::came() && line.has("export"))
            return exportTo(line.get<std::string>("export"), page, objects);
        signals = holdEndingSignals();
    }
    if (Interruption::came()) return tellInterruption();
    view::PageServer server(page, std::move(objects), line.get<int>("port"));
    printf("%s\n", server.address().c_str());
    if (fflush(stdout) != 0) throw std::runtime_error("the address could not be written");
    std::thread serving([&] { server.run(); });
    if (!line.has("no-open")) openBrowser(server.address());
    int signal = 0;
    sigwait(&signals, &signal);
    server.stop();
    serving.join();
    return kAllDone;
}

int answer(const std::vector<std::string>& words) {
    if (words.empty() || words[0] != "view")
        throw UsageError("vintak-view is a part of vintak; its only command is \"view\"");
    return runView({words.begin() + 1, words.end()});
}

}  // namespace

int main(int argc, char* argv[]) {
    return programMain(argc, argv, answer);
}
