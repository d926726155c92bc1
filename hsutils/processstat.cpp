#include "hsutils/processstat.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

std::string processStat(pid_t pid) {
    // Not through a stream, which throws where the process ends between the opening and the reading.
    char bytes[1024];
    const int file = open(("/proc/" + std::to_string(pid) + "/stat").c_str(), O_RDONLY | O_CLOEXEC);
    const ssize_t got = file < 0 ? 0 : read(file, bytes, sizeof bytes);
    if (file >= 0) close(file);
    const std::string_view text(bytes, static_cast<size_t>(std::max<ssize_t>(got, 0)));
    const size_t name = text.rfind(')');
    return name == std::string_view::npos || name + 2 >= text.size() ? ""
                                                                     : std::string(text.substr(name + 2));
}

bool hasEnded(const std::string& stat) {
    return stat.starts_with('Z') || stat.starts_with('X');
}
