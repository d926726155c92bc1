#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "tools/command/CommandLine.h"
#include "tools/exitcodes.h"
#include "tools/vintak/commands.h"
#include "vintakd/config/configcheck.h"

namespace {

void printValues(const std::vector<ConfigValue>& values) {
    std::string file;
    for (const ConfigValue& value : values) {
        if (value.file != file) printf("%s%s\n", file.empty() ? "" : "\n", value.file.c_str());
        file = value.file;
        printf("  %s = %s  (%s)\n", value.name.c_str(), value.value.c_str(), value.source.c_str());
    }
}

}  // namespace

int runCheckConfig(const std::vector<std::string>& arguments) {
    CommandLine line(
        "check-config [DIR]",
        "Checks the configuration files in DIR (default: the environment variable CONF), and "
        "privtags.cfg in the folder that DOWNLOAD_HOME names, as the daemon does at its start. Prints "
        "every setting that holds, with its source: default, or the file and line.\n\n"
        "Exit status: 0 the daemon would start with them, 2 usage, 4 it would not.");
    line.takeRestAs("folder");
    if (!line.parse(arguments)) return kAllDone;
    const std::vector<std::string> words = line.list("folder");
    if (words.size() > 1) throw UsageError("check-config takes one folder");
    // The daemon does without its folder; who names one here has mistyped it.
    std::error_code error;
    if (!words.empty() && !std::filesystem::is_directory(words[0], error))
        throw UsageError(words[0] + ": " + (error ? error.message() : "not a folder"));
    const ConfigReport report =
        checkConfiguration(words.empty() ? getenv("CONF") : words[0].c_str(), getenv("DOWNLOAD_HOME")).report;
    printValues(report.values);
    for (const std::string& note : report.notes)
        fprintf(stderr, "note: %s\n", note.c_str());
    for (const std::string& problem : report.problems)
        fprintf(stderr, "error: %s\n", problem.c_str());
    return report.problems.empty() ? kAllDone : kAllFailed;
}
