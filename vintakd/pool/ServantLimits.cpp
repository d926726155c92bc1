#include "vintakd/pool/ServantLimits.h"

#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "hsutils/HSProperties.h"
#include "hsutils/Utils.h"
#include "hsutils/nearestname.h"

namespace {

constexpr uint64_t kMegabyte = uint64_t{1} << 20;

struct NumberEntry {
    const char* name;
    uint64_t ServantLimits::*field;
    uint64_t unit;
    uint64_t least;  ///< beside 0
    uint64_t most;
};

constexpr NumberEntry kNumbers[] = {
    {"ADDRESS_SPACE_MB", &ServantLimits::addressSpaceBytes, kMegabyte, 64, uint64_t{1} << 30},
    {"FILE_SIZE_MB", &ServantLimits::fileBytes, kMegabyte, 1, uint64_t{1} << 30},
    {"OUTPUT_SIZE_MB", &ServantLimits::outputBytes, kMegabyte, 1, uint64_t{1} << 30},
    {"DESCRIPTORS", &ServantLimits::descriptors, 1, 16, 1 << 20},
    {"CORE_SIZE_MB", &ServantLimits::coreBytes, kMegabyte, 0, uint64_t{1} << 30},
    {"CPU_SECONDS", &ServantLimits::cpuSeconds, 1, 1, 1 << 30},
    {"DEADLINE_SECONDS", &ServantLimits::deadlineSeconds, 1, 1, 1 << 30},
};

[[noreturn]] void refuse(const std::string& path, const char* name, const char* value,
                         const std::string& why) {
    throw std::runtime_error(path + ": " + name + " = " + value + ": " + why);
}

uint64_t readNumber(const std::string& path, const NumberEntry& entry, const char* value) {
    uint64_t number = 0;
    const char* end = value + std::strlen(value);
    const auto parsed = std::from_chars(value, end, number);
    const bool inRange = number == 0 || (number >= entry.least && number <= entry.most);
    if (parsed.ec != std::errc() || parsed.ptr != end || !inRange) {
        refuse(path, entry.name, value,
               "a whole number from " + std::to_string(entry.least) + " to " + std::to_string(entry.most) +
                   " is needed, or 0");
    }
    return number * entry.unit;
}

constexpr char kFilter[] = "SYSTEM_CALL_FILTER";

std::string trimmed(const std::string& text) {
    constexpr char kWhite[] = " \t\n\v\f\r";
    const size_t first = text.find_first_not_of(kWhite);
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(kWhite) - first + 1);
}

/// A properties file passes over what it does not understand. Here a limit that is misspelt would be no
/// limit, and nobody would be told.
void checkNames(const std::string& path) {
    std::vector<std::string> known{kFilter};
    for (const NumberEntry& entry : kNumbers)
        known.emplace_back(entry.name);
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        line = trimmed(line);
        if (line.empty() || line.front() == '#') continue;
        const size_t equals = line.find('=');
        const std::string name = trimmed(line.substr(0, equals));
        const auto fail = [&](const std::string& why) {
            throw std::runtime_error(path + ": " + printable(line) + ": " + why);
        };
        if (equals == std::string::npos || name.empty()) fail("an entry is written NAME = VALUE");
        if (std::find(known.begin(), known.end(), name) == known.end())
            fail("there is no such entry; the nearest is " + nearestName(name, known));
    }
}

bool readSwitch(const std::string& path, const char* name, const char* value) {
    if (std::strcmp(value, "on") == 0) return true;
    if (std::strcmp(value, "off") != 0) refuse(path, name, value, "on or off is needed");
    return false;
}

void setLimit(__rlimit_resource resource, const char* name, uint64_t bytes) {
    rlimit limit{};
    getrlimit(resource, &limit);
    limit.rlim_cur = limit.rlim_max = std::min<rlim_t>(bytes, limit.rlim_max);
    if (setrlimit(resource, &limit) != 0)
        throw std::runtime_error(std::string(name) + " could not be limited: " + std::strerror(errno));
}

}  // namespace

ServantLimits ServantLimits::none() {
    ServantLimits limits;
    for (const NumberEntry& entry : kNumbers)
        limits.*entry.field = 0;
    limits.systemCallFilter = false;
    return limits;
}

ServantLimits ServantLimits::read(const char* folder) {
    ServantLimits limits;
    if (folder == nullptr) return limits;
    const std::string path = std::string(folder) + "/limits.conf";
    HSProperties properties;
    if (!properties.load(path.c_str())) return limits;
    checkNames(path);
    for (const NumberEntry& entry : kNumbers) {
        if (const char* value = properties.getProperty(entry.name))
            limits.*entry.field = readNumber(path, entry, value);
    }
    if (const char* value = properties.getProperty(kFilter))
        limits.systemCallFilter = readSwitch(path, kFilter, value);
    return limits;
}

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
