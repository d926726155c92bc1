#include "tools/backfill/Owner.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

std::string firstLine(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

/// The 22nd field of /proc/PID/stat; -1 where there is no such process. The name, in brackets, may have any
/// bytes in it.
int64_t startOf(pid_t pid) {
    constexpr int kFieldsBehindName = 20;
    // Not through a stream, which throws where the process ends between the opening and the reading.
    char bytes[1024];
    const int file = open(("/proc/" + std::to_string(pid) + "/stat").c_str(), O_RDONLY | O_CLOEXEC);
    const ssize_t got = file < 0 ? 0 : read(file, bytes, sizeof bytes);
    if (file >= 0) close(file);
    const std::string text(bytes, static_cast<size_t>(std::max<ssize_t>(got, 0)));
    size_t at = text.rfind(')');
    if (at == std::string::npos) return -1;
    if (text.compare(at, 3, ") Z") == 0 || text.compare(at, 3, ") X") == 0)
        return -1;  // only its parent waits
    for (int field = 0; field < kFieldsBehindName && at != std::string::npos; ++field)
        at = text.find(' ', at + 1);
    return at == std::string::npos ? -1 : std::strtoll(text.c_str() + at, nullptr, 10);
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
