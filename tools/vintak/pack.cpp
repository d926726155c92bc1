#include "pack/packseries.h"

#include <cinttypes>
#include <cstdio>
#include <functional>

#include "hsutils/Utils.h"
#include "pack/PackError.h"
#include "pack/PackIndex.h"
#include "pack/unpack.h"
#include "tools/command/CommandLine.h"
#include "tools/command/Interruption.h"
#include "tools/command/ListReader.h"
#include "tools/exitcodes.h"
#include "tools/vintak/commands.h"

namespace po = boost::program_options;

namespace {

/// An action that asks Interruption::came() and fails then; `left` says what is left of it.
int unlessInterrupted(const char* left, const std::function<void()>& action) {
    const Interruption interruption;
    try {
        action();
        return kAllDone;
    } catch (const pack::PackError&) {
        if (!Interruption::came()) throw;
    }
    fprintf(stderr, "vintak: interrupted; %s\n", left);
    return kInterrupted;
}

/// Those of the command line, or of the list that it names.
std::vector<std::string> wordsToPack(const CommandLine& line) {
    std::vector<std::string> words = line.list("files");
    if (!line.has("files-from")) return words;
    const auto path = line.get<std::string>("files-from");
    ListReader list(path, line.has("null") ? '\0' : '\n');
    for (std::string word; list.next(word);)
        words.push_back(word);
    if (words.empty()) throw pack::PackError("there is nothing to pack in " + path);
    return words;
}

}  // namespace

int runPack(const std::vector<std::string>& arguments) {
    CommandLine line(
        "pack -o PREFIX DESC... [options]",
        "Packs converted objects, a series for instance, into one set of files: PREFIX.index and the "
        "files\nthat it names. A DESC is the .desc of an object whose files lie beside it, or the .index "
        "of one that was\nconverted packed. The objects are put in the order of their planes where "
        "all have the same orientation.\nThe index is written last: it exists only when all of the pack "
        "does. What is packed stays where it is.\n\n"
        "Exit status: 0 it was packed, 2 usage, 4 it was not, and there is no pack, 130 interrupted.");
    line.addOptions()("output,o", po::value<std::string>(), "prefix of the pack's files")(
        "durable", "write to the disk before the index: it is true also after the machine lost its power")(
        "as-given", "keep the order of the command line or the list")(
        "files-from", po::value<std::string>(),
        "read the names from this list, one a line; - is standard input")(
        "null,0", "names in the list end with a NUL, not with the line");
    line.takeRestAs("files");
    if (!line.parse(arguments)) return kAllDone;
    if (!line.has("output") || line.get<std::string>("output").empty())
        throw UsageError("pack needs -o PREFIX");
    if (line.get<std::string>("output").ends_with('/'))
        throw UsageError("-o PREFIX ends in the pack's name, as in " + line.get<std::string>("output") +
                         "series");
    if (line.list("files").empty() != line.has("files-from"))
        throw UsageError("pack needs the .desc files of objects, or a list of them");
    if (line.has("null") && !line.has("files-from")) throw UsageError("-0 is about --files-from");
    return unlessInterrupted("there is no pack", [&] {
        const pack::PackedSeries packed =
            pack::packSeries(line.get<std::string>("output"), wordsToPack(line), !line.has("as-given"),
                             line.has("durable") ? pack::Durability::durable : pack::Durability::ofProcess,
                             Interruption::came);
        printf("packed %" PRIu64 " frames of %" PRIu64 " objects, %" PRIu64 " bytes, in the order %s\n",
               packed.frames, packed.objects, packed.bytes,
               packed.order == pack::Order::byGeometry ? "of their planes" : "in which they were given");
    });
}

int runUnpack(const std::vector<std::string>& arguments) {
    CommandLine line(
        "unpack INDEX [-o PREFIX]",
        "Writes the separate files of a pack again, byte for byte, named PREFIX plus the name of their "
        "object.\nThe pack stays.\n\n"
        "Exit status: 0 all was unpacked, 2 usage, 4 it was not, 130 interrupted.");
    line.addOptions()("output,o", po::value<std::string>()->default_value(""), "prefix of the files");
    line.takeRestAs("files");
    if (!line.parse(arguments)) return kAllDone;
    const std::vector<std::string> words = line.list("files");
    if (words.size() != 1) throw UsageError("unpack takes the .index of one pack");
    return unlessInterrupted("what was unpacked by then stays", [&] {
        printf("unpacked %" PRIu64 " files\n",
               pack::unpack(words.front(), line.get<std::string>("output"), Interruption::came));
    });
}

int runVerify(const std::vector<std::string>& arguments) {
    CommandLine line("verify INDEX...",
                     "Reads all of a pack and compares it with the checksums and the sizes in its index.\n\n"
                     "Exit status: 0 all are whole, 1 some are not, 2 usage, 4 none is.");
    line.takeRestAs("files");
    if (!line.parse(arguments)) return kAllDone;
    const std::vector<std::string> words = line.list("files");
    if (words.empty()) throw UsageError("verify takes the .index of a pack");
    size_t failed = 0;
    for (const std::string& word : words) {
        try {
            const pack::PackIndex index(word);
            index.walk({});
            printf("%s: %" PRIu64 " frames of %" PRIu64 " objects, whole\n", word.c_str(),
                   index.head().frames, index.head().objects);
        } catch (const std::exception& error) {
            fprintf(stderr, "vintak: %s\n", printable(error.what()).c_str());
            ++failed;
        }
    }
    return exitCodeOf(words.size(), failed);
}
