#include <algorithm>
#include <cstdio>

#include "hsutils/Utils.h"
#include "tools/command/CommandLine.h"
#include "tools/command/Session.h"
#include "tools/exitcodes.h"
#include "tools/vintak/commands.h"

namespace {

/// Longest line that is printed whole unless asked for: pixel data is a value too.
constexpr size_t kLongLine = 1024;

void print(const std::string& dump, bool whole) {
    for (size_t start = 0; start < dump.size();) {
        const size_t end = std::min(dump.find('\n', start), dump.size());
        const bool cut = !whole && end - start > kLongLine;
        fwrite(dump.data() + start, 1, cut ? kLongLine : end - start, stdout);
        fputs(cut ? "...\n" : "\n", stdout);
        start = end + 1;
    }
}

}  // namespace

int runDump(const std::vector<std::string>& arguments) {
    CommandLine line(
        "dump FILE... [options]",
        "Prints every element of DICOM objects, one line each: tag, VR, value.\n\n"
        "Exit status: 0 all dumped, 1 some failed, 2 usage, 3 no daemon, 4 all failed, 5 not\nallowed.");
    line.addOptions()("long", "print lines of more than 1024 characters whole")(
        "escape", "print line breaks and backslashes of values as \\n, \\r and \\\\");
    line.takeRestAs("files");
    if (!line.parse(arguments)) return kAllDone;
    const std::vector<std::string> files = line.list("files");
    if (files.empty()) throw UsageError("dump needs a file");

    Session session(line.segment());
    size_t failed = 0;
    for (const std::string& file : files) {
        Request request;
        request.inputFile = absolutePath(file);
        request.verbose = true;
        request.dumponly = true;
        request.escapeNewLines = line.has("escape");
        const Outcome outcome = session.ask(request);
        if (!outcome.done) {
            ++failed;
            fprintf(stderr, "%s: %s\n", printable(file).c_str(), printable(outcome.text).c_str());
            continue;
        }
        if (files.size() > 1) printf("# %s\n", printable(file).c_str());
        print(outcome.text, line.has("long"));
    }
    return exitCodeOf(files.size(), failed);
}
