#include "vintakd/pool/ServantLimits.h"

#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include "hsutils/Utils.h"

namespace {

void setLimit(__rlimit_resource resource, const char* name, uint64_t bytes) {
    rlimit limit{};
    getrlimit(resource, &limit);
    limit.rlim_cur = limit.rlim_max = std::min<rlim_t>(bytes, limit.rlim_max);
    if (setrlimit(resource, &limit) != 0)
        throw std::runtime_error(std::string(name) + " could not be limited: " + std::strerror(errno));
}

/// What the process has used, rounded up to be sure that a limit behind it allows all of its seconds.
uint64_t processorSeconds() {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    return static_cast<uint64_t>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) + 2;
}

void allowProcessorTime(uint64_t end) {
    rlimit limit{};
    getrlimit(RLIMIT_CPU, &limit);
    limit.rlim_cur = std::min<rlim_t>(end, limit.rlim_max);
    setrlimit(RLIMIT_CPU, &limit);
}

}  // namespace

void ServantLimits::apply() const {
    // A file that grows too large is to fail its write with a reason, not to end the servant.
    signal(SIGXFSZ, SIG_IGN);
    if (addressSpaceBytes != 0 && !kSanitized) setLimit(RLIMIT_AS, "the address space", addressSpaceBytes);
    if (fileBytes != 0) setLimit(RLIMIT_FSIZE, "the size of files", fileBytes);
    if (descriptors != 0) setLimit(RLIMIT_NOFILE, "the number of descriptors", descriptors);
    setLimit(RLIMIT_CORE, "the size of core files", coreBytes);
}

uint64_t ServantLimits::allowRequest() const {
    if (cpuSeconds == 0 && frameCpuSeconds == 0) return kNoEnd;  // then nothing else has set one either
    const uint64_t end = cpuSeconds == 0 ? kNoEnd : processorSeconds() + cpuSeconds;
    allowProcessorTime(end);
    return end;
}

bool ServantLimits::allowFrame(uint64_t requestEnd) const {
    if (frameCpuSeconds == 0) return false;
    const uint64_t end = processorSeconds() + frameCpuSeconds;
    allowProcessorTime(std::min(end, requestEnd));
    return end < requestEnd;
}
