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

}  // namespace

void ServantLimits::apply() const {
    // A file that grows too large is to fail its write with a reason, not to end the servant.
    signal(SIGXFSZ, SIG_IGN);
    if (addressSpaceBytes != 0 && !kSanitized) setLimit(RLIMIT_AS, "the address space", addressSpaceBytes);
    if (fileBytes != 0) setLimit(RLIMIT_FSIZE, "the size of files", fileBytes);
    if (descriptors != 0) setLimit(RLIMIT_NOFILE, "the number of descriptors", descriptors);
    setLimit(RLIMIT_CORE, "the size of core files", coreBytes);
}

void ServantLimits::allowRequest() const {
    if (cpuSeconds == 0) return;
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    const auto seconds = static_cast<rlim_t>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) + 2;
    rlimit limit{};
    getrlimit(RLIMIT_CPU, &limit);
    limit.rlim_cur = std::min<rlim_t>(seconds + cpuSeconds, limit.rlim_max);
    setrlimit(RLIMIT_CPU, &limit);
}
