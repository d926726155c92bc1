#include <string>
#include <vector>

#include "tools/command/CommandLine.h"
#include "tools/command/Program.h"
#include "tools/vintak-feed/commands.h"

namespace {

int answer(const std::vector<std::string>& words) {
    if (words.empty()) throw UsageError("vintak-feed is a part of vintak and wants one of its commands");
    const std::string& name = words.front();
    const std::vector<std::string> rest(words.begin() + 1, words.end());
    if (name == "spool") return runSpool(rest);
#ifdef VINTAK_HAS_BACKFILL
    if (name == "backfill") return runBackfill(rest);
#endif
#ifdef VINTAK_HAS_BROKER
    if (name == "submit") return runSubmit(rest);
    if (name == "work") return runWork(rest);
#endif
    throw UsageError("vintak-feed is a part of vintak; it has no command \"" + name + "\"");
}

}  // namespace

int main(int argc, char* argv[]) {
    return programMain(argc, argv, answer);
}
