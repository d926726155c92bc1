#include "tools/backfill/DiskPace.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>

namespace {

/// Pages that the system lets wait for their disks.
double pagesThatMayWait() {
    std::ifstream file("/proc/vmstat");
    std::string name;
    for (double value = 0; file >> name >> value;)
        if (name == "nr_dirty_threshold") return value;
    return 0;
}

}  // namespace

double DiskPace::seconds(double bytes) const {
    return bytesPerSecond > 0 ? std::max(bytes - inMemory, 0.0) / bytesPerSecond : 0;
}

double settleDisk(const std::string& folder) {
    const auto start = std::chrono::steady_clock::now();
    const int file = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool done = file >= 0 && syncfs(file) == 0;
    if (file >= 0) close(file);
    return done ? std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() : -1;
}

DiskPace diskPace(double bytes, double seconds) {
    constexpr double kLeast = 16e6;
    if (bytes < kLeast || seconds <= 0) return {};
    return {.bytesPerSecond = bytes / seconds,
            .inMemory = pagesThatMayWait() * static_cast<double>(sysconf(_SC_PAGESIZE))};
}
