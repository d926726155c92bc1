#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "kelt4/kernel.h"
#include "tools/command/CommandLine.h"
#include "tools/command/Program.h"
#include "tools/exitcodes.h"
#include "tools/picture/commands.h"
#include "tools/vintak/commands.h"
#include "tools/vintak/otherprogram.h"

namespace {

struct Command {
    const char* name;
    const char* about;
    int (*run)(const std::vector<std::string>&);
    const char* program = nullptr;  ///< which one does it where this one does not
};

constexpr Command kCommands[] = {
    {"convert", "convert objects into the files of the viewer", runConvert},
    {"dump", "print every element of objects", runDump},
    {"query", "print the values of tags", runQuery},
    {"spool", "convert what arrives in a folder", nullptr, "vintak-feed"},
#ifdef VINTAK_HAS_BACKFILL
    {"backfill", "convert an archive, by a ledger", nullptr, "vintak-feed"},
#endif
#ifdef VINTAK_HAS_BROKER
    {"submit", "put objects into a broker's queue", nullptr, "vintak-feed"},
    {"work", "convert the objects of a broker's queue", nullptr, "vintak-feed"},
#endif
    {"ping", "ask whether a servant answers", runPing},
#ifdef VINTAK_HAS_VIEW
    {"view", "show objects in the browser", nullptr, "vintak-view"},
#endif
    {"show", "turn the viewer's files into pictures", runShow},
    {"info", "print the header and the chunks of a stream", runInfo},
    {"pack", "put the files of many objects into a few", runPack},
    {"unpack", "write the separate files of a pack again", runUnpack},
    {"verify", "compare a pack with its checksums", runVerify},
    {"status", "print the channel table", runStatus},
    {"health", "tell whether the daemon serves, for a script", runHealth},
    {"metrics", "print the daemon's figures for Prometheus", runMetrics},
    {"check-config", "check the configuration files and show what holds", runCheckConfig},
    {"trace", "switch the diagnostic trace", runTrace},
};

void printHelp(std::ostream& out) {
    out << "Usage: vintak COMMAND [options]\n\n"
           "Asks the vintakd daemon of this host to convert DICOM objects, or to tell what is in "
           "them.\n\nCommands:\n";
    for (const Command& command : kCommands) {
        out << "  " << command.name << std::string(14 - std::string(command.name).size(), ' ')
            << command.about << "\n";
    }
    out << "\nvintak COMMAND --help tells more. vintak --version prints the version.\n\n"
           "Exit status: 0 all done, 1 some files failed, 2 usage, 3 no daemon, 4 all files failed,\n5 not "
           "allowed: another account's daemon, 6 refused by a limit, 7 unsupported, 130 interrupted.\n";
}

/// What has a program of its own does not come back.
int run(const std::string& name, const std::vector<std::string>& arguments) {
    for (const Command& command : kCommands) {
        if (name != command.name) continue;
        if (command.run) return command.run(arguments);
        std::vector<std::string> words{name};
        words.insert(words.end(), arguments.begin(), arguments.end());
        becomeProgram(command.program, words);
    }
#ifndef VINTAK_HAS_VIEW
    if (name == "view")
        throw UsageError("this program was built without cpp-httplib (libcpp-httplib-dev), which view needs");
#endif
#ifndef VINTAK_HAS_BACKFILL
    if (name == "backfill")
        throw UsageError("this program was built without SQLite (libsqlite3-dev), which backfill needs");
#endif
#ifndef VINTAK_HAS_BROKER
    if (name == "submit" || name == "work")
        throw UsageError("this program was built without RabbitMQ (librabbitmq-dev), which " + name +
                         " needs");
#endif
    throw UsageError("there is no command \"" + name + "\"");
}

/// The version and the kernels of the stream coder, the active one first.
void printVersion() {
    printf("vintak %s\nstream coder kernel: %s (of", VINTAKD_VERSION,
           std::string(dvq::kelt4::activeKernelName()).c_str());
    for (const auto& kernel : dvq::kelt4::availableKernels())
        printf(" %s", std::string(kernel.name).c_str());
    printf(")\n");
}

int answer(const std::vector<std::string>& words) {
    if (words.empty()) {
        printHelp(std::cerr);
        return kUsageError;
    }
    if (words[0] == "help" && words.size() > 1) return run(words[1], {"--help"});
    if (words[0] == "--help" || words[0] == "-h" || words[0] == "help")
        printHelp(std::cout);
    else if (words[0] == "--version")
        printVersion();
    else
        return run(words[0], {words.begin() + 1, words.end()});
    return kAllDone;
}

}  // namespace

int main(int argc, char* argv[]) {
    return programMain(argc, argv, answer);
}
