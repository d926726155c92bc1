#include "tools/backfill/Owner.h"

#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <string>

#include "hsutils/processstat.h"

namespace {

std::string firstLine(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

/// The 22nd field of /proc/PID/stat; -1 where there is no such process.
int64_t startOf(pid_t pid) {
    constexpr int kFieldsBehindState = 19;
    const std::string stat = processStat(pid);
    if (stat.empty() || hasEnded(stat)) return -1;
    size_t at = 0;
    for (int field = 0; field < kFieldsBehindState && at != std::string::npos; ++field)
        at = stat.find(' ', at + 1);
    return at == std::string::npos ? -1 : std::strtoll(stat.c_str() + at, nullptr, 10);
}

}  // namespace

Owner Owner::self() {
    char text[PATH_MAX] = "";
    Owner owner;
    owner.pid = getpid();
    owner.started = startOf(owner.pid);
    if (gethostname(text, sizeof text - 1) == 0) owner.host = text;
    owner.boot = firstLine("/proc/sys/kernel/random/boot_id");
    const ssize_t length = readlink("/proc/self/ns/pid", text, sizeof text);
    owner.space = length > 0 ? std::string(text, static_cast<size_t>(length)) : "";
    return owner;
}

bool Owner::isGone() const {
    const Owner here = self();
    if (host != here.host) return false;
    if (boot != here.boot) return true;
    return space == here.space && startOf(pid) != started;
}
