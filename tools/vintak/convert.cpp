#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>

#include "tools/picture/exitcodes.h"
#include "tools/vintak/CommandLine.h"
#include "tools/vintak/Conversion.h"
#include "tools/vintak/Session.h"
#include "tools/vintak/commands.h"

namespace po = boost::program_options;

namespace {

/// The name under which a file's results are written: without folder and without ".dcm".
std::string resultName(const std::string& file) {
    const std::filesystem::path path(file);
    return path.extension() == ".dcm" ? path.stem().string() : path.filename().string();
}

std::vector<Request> makeRequests(const CommandLine& line, const std::vector<std::string>& files) {
    const std::string output = absolutePath(line.get<std::string>("output"));
    const std::string cache = line.has("cache") ? absolutePath(line.get<std::string>("cache")) : output;
    std::map<std::string, std::string> taken;
    std::vector<Request> requests;
    for (const std::string& file : files) {
        const std::string name = resultName(file);
        const auto [other, added] = taken.emplace(name, file);
        if (!added) throw UsageError(other->second + " and " + file + " would both write " + output + name);
        Request request;
        request.inputFile = absolutePath(file);
        request.outputPrefix = output + name;
        request.cachePrefix = cache + name;
        request.needOptimize = !line.has("no-optimize");
        request.noCached = line.has("no-cache");
        request.writeMask = line.get<int>("mask");
        request.specificFrame = line.get<int>("frame");
        requests.push_back(std::move(request));
    }
    return requests;
}

}  // namespace

int runConvert(const std::vector<std::string>& arguments) {
    CommandLine line(
        "convert FILE... [-o PREFIX] [-c PREFIX] [options]",
        "Converts DICOM objects into the files of the viewer. The results of a FILE are named PREFIX plus\n"
        "the file's name without folder and without \".dcm\": with \"-o out/\", a/x.dcm gives out/x.desc,\n"
        "out/x.pdcm, out/x_1.raw and so on. One line on standard error for every file that failed\n"
        "and for everything that is missing in the results of one that did not.\n\n"
        "Exit status: 0 all converted, 1 some failed or incomplete, 2 usage, 3 no daemon, 4 all failed.");
    line.addOptions()("output,o", po::value<std::string>()->default_value(""), "prefix of the output files")(
        "cache,c", po::value<std::string>(), "prefix of the cache files (default: as the output files)")(
        "mask", po::value<int>()->default_value(3),
        "which files to write: 1 preview (.p.qi4), 2 stream (.t.qi4, .f.qi4), 4 no thumbnails, 16 no .raw; a "
        "sum")("frame", po::value<int>()->default_value(0), "convert this frame only, counted from 1")(
        "no-cache", "write no cache files and no .pdcm copy")(
        "no-optimize", "keep 16-bit frames whose values fit 8 bits wide")(
        "jobs", po::value<int>(), "files converted at the same time (default: one for every servant)");
    line.takeRestAs("files");
    if (!line.parse(arguments)) return kAllDone;
    const std::vector<std::string> files = line.list("files");
    if (files.empty()) throw UsageError("convert needs a file");
    if (line.get<int>("frame") < 0) throw UsageError("a frame number is 1 or more");
    if (line.has("jobs") && line.get<int>("jobs") < 1) throw UsageError("--jobs is 1 or more");
    const std::vector<Request> requests = makeRequests(line, files);

    Session session(line.segment());
    const size_t jobs = line.has("jobs") ? static_cast<size_t>(line.get<int>("jobs")) : session.channels();
    const auto start = std::chrono::steady_clock::now();
    Conversion conversion(session, files, requests);
    conversion.run(std::min(jobs, files.size()));
    const size_t failed = conversion.failures(), warned = conversion.filesWithWarnings();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    const std::string warnings = warned > 0 ? " (" + std::to_string(warned) + " with warnings)" : "";
    printf("%zu converted%s, %zu failed in %.2f s\n", files.size() - failed, warnings.c_str(), failed,
           elapsed.count());
    return failed == 0 && warned > 0 ? kSomeFailed : exitCodeOf(files.size(), failed);
}
