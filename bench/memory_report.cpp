// Does the servant's memory grow with the number of frames? Converts a phantom of 10 and one of 1000 frames,
// each with a fresh servant and all files, and prints the servant's peak resident set. Exits with 1 when they
// differ by more than a tenth. The object with a position for every frame is there for comparison: what the
// toolkit holds of a thousand items of functional groups is not the frames' memory.

#include <sys/types.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "bench/pool_process.h"
#include "tools/phantom/phantomobject.h"
#include "vintakd/service/VintakServant.h"
#include "vintakd/vintakd_if.h"

namespace {

/// Peak resident set of the pool's only servant in KiB.
long peakOfServant(pid_t daemon) {
    const std::string id = std::to_string(daemon);
    std::ifstream children("/proc/" + id + "/task/" + id + "/children");
    std::string servant;
    children >> servant;
    std::ifstream status("/proc/" + servant + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
    }
    return 0;
}

long peakOfConversion(unsigned frames, bool framePositions = false) {
    const std::string folder = "/dev/shm/vintakd_memory_" + std::to_string(getpid());
    std::filesystem::create_directory(folder);
    const std::string input = folder + "/in.dcm";
    const std::string output = folder + "/out";
    // Written by a process of its own: a servant inherits what its parent has touched.
    const pid_t writer = fork();
    if (writer == 0) {
        writePhantom(input, {frames, 512, framePositions});
        _exit(0);
    }
    waitpid(writer, nullptr, 0);
    long peak = 0;
    {
        PoolProcess<VintakServant> pool(1);
        vintakd::vintak(pool.gateway(), input.c_str(), output.c_str(), output.c_str(), false, false, false,
                        true, false, 0, 0, nullptr, 0, nullptr, 3, 0, 0);
        peak = peakOfServant(pool.pid());
    }
    std::filesystem::remove_all(folder);
    printf("%5u frames of 512 x 512, 16 bit%s: peak resident set of the servant %ld KiB\n", frames,
           framePositions ? ", a position for each" : "", peak);
    (void)fflush(stdout);
    return peak;
}

}  // namespace

int main() {
    VintakServant::prepareProcess();
    const long few = peakOfConversion(10);
    const long many = peakOfConversion(1000);
    peakOfConversion(1000, true);
    return few > 0 && std::labs(many - few) * 10 <= few ? 0 : 1;
}
