#include <map>

#include "tools/command/CommandLine.h"
#include "tools/command/resultfiles.h"
#include "tools/exitcodes.h"
#include "tools/vintak/ConvertRun.h"
#include "tools/vintak/commands.h"

namespace po = boost::program_options;

namespace {

constexpr const char* kAbout =
    "Converts DICOM objects into the files of the viewer. The results of a FILE are named PREFIX plus\n"
    "the file's name without folder and without \".dcm\": with \"-o out/\", a/x.dcm gives out/x.desc,\n"
    "out/x.pdcm, out/x_1.raw and so on. Of a FOLDER all objects in it and below it are converted, known by\n"
    "their content; what stands between the folder and the file is kept: with \"-o out/\", the folder a "
    "gives\n"
    "out/b/x.desc for a/b/x.dcm. The names in a list keep their whole folder, without a \"/\" at its\n"
    "beginning. One line on standard error for every file that failed and for everything that is missing in\n"
    "the results of one that did not. On Ctrl-C what runs is finished and what is left is said; a second "
    "one\n"
    "ends at once.\n\n"
    "Exit status: 0 all converted, 1 some failed or incomplete, 2 usage, 3 no daemon, 4 all failed, 5 not\n"
    "allowed, 6 all refused by a limit, 7 all unsupported, 130 interrupted.";

void addOptions(CommandLine& line) {
    line.addOptions()("output,o", po::value<std::string>()->default_value(""), "prefix of the output files")(
        "cache,c", po::value<std::string>(), "prefix of the cache files (default: as the output files)")(
        "mask", po::value<int>()->default_value(3),
        "which files to write: 1 preview (.p.qi4), 2 stream (.t.qi4, .f.qi4), 4 no thumbnails, 16 no .raw; a "
        "sum")("frame", po::value<int>()->default_value(0), "convert this frame only, counted from 1")(
        "no-cache", "write no cache files and no .pdcm copy")(
        "no-optimize", "keep 16-bit frames whose values fit 8 bits wide")(
        "packed", "write the files of all frames into a pack: PREFIX.index and the few files that it names")(
        "jobs", po::value<int>(),
        "most files converted at the same time (default: as many as keep the processors busy)")(
        "parts", po::value<int>(),
        "cut each object into so many parts, for several servants at the same time (default: objects of 64 "
        "frames "
        "and 16 MiB or more, where fewer FILEs are named than there are servants)")(
        "files-from", po::value<std::string>(),
        "read the names of files and folders from this list, one a line; - is standard input")(
        "null,0", "names in the list end with a NUL, not with the line")(
        "json", "print a line of JSON for every object; the summary goes to standard error")(
        "skip-existing",
        "leave out objects whose results are there, complete and younger than the object; the options are "
        "taken to be the same as then")(
        "move-failed", po::value<std::string>(),
        "move objects that cannot be converted to this folder, with a NAME.reason.txt beside each; not those "
        "that failed for another reason than their own");
    line.takeRestAs("files");
}

/// Two files of the command that would write the same results are a mistake in it.
void checkNames(const std::vector<std::string>& words, const std::string& output) {
    std::map<std::string, std::string> taken;
    for (const std::string& word : words) {
        if (vintakd::identifyFolder(word).inode != 0) continue;
        const auto [other, added] = taken.emplace(resultName(word), word);
        if (!added)
            throw UsageError(other->second + " and " + word + " would both write " + output + other->first);
    }
}

ConvertOptions optionsOf(const CommandLine& line) {
    ConvertOptions options;
    options.words = line.list("files");
    if (line.has("files-from")) options.list = line.get<std::string>("files-from");
    if (options.words.empty() == options.list.empty())
        throw UsageError("convert needs files or folders, or a list of them");
    if (line.has("null") && options.list.empty()) throw UsageError("-0 is about --files-from");
    if (line.has("null")) options.separator = '\0';
    if (line.get<int>("frame") < 0) throw UsageError("a frame number is 1 or more");
    if (line.has("jobs") && line.get<int>("jobs") < 1) throw UsageError("--jobs is 1 or more");
    if (line.has("parts") && line.get<int>("parts") < 1) throw UsageError("--parts is 1 or more");
    if (line.has("parts")) options.parts = static_cast<size_t>(line.get<int>("parts"));
    options.frame = line.get<int>("frame");
    options.noCache = line.has("no-cache");
    options.skipExisting = line.has("skip-existing");
    if (options.skipExisting && (options.noCache || options.frame > 0))
        throw UsageError(
            "--skip-existing goes by the .pdcm copy, which --no-cache and --frame do not leave behind");
    options.output = absolutePath(line.get<std::string>("output"));
    options.cache = line.has("cache") ? absolutePath(line.get<std::string>("cache")) : options.output;
    options.needOptimize = !line.has("no-optimize");
    options.writeMask = line.get<int>("mask");
    options.packed = line.has("packed");
    if (options.packed && options.frame > 0) throw UsageError("a single frame is not packed");
    if (options.packed) options.writeMask |= kPackedMask;
    if (options.packed && (options.writeMask & ~kPackedMask & ~0x17) != 0)
        throw UsageError("--packed goes with a --mask of 1, 2, 4 and 16 alone");
    options.json = line.has("json");
    if (line.has("move-failed")) options.failedFolder = absolutePath(line.get<std::string>("move-failed"));
    if (line.has("jobs")) options.jobs = static_cast<size_t>(line.get<int>("jobs"));
    checkNames(options.words, options.output);
    return options;
}

}  // namespace

int runConvert(const std::vector<std::string>& arguments) {
    CommandLine line("convert FILE|FOLDER... [-o PREFIX] [-c PREFIX] [options]", kAbout);
    addOptions(line);
    if (!line.parse(arguments)) return kAllDone;
    const ConvertOptions options = optionsOf(line);
    Session session(line.segment());
    return ConvertRun(options, session).run();
}
