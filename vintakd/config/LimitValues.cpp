#include "vintakd/config/LimitValues.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <optional>
#include <string>

#include "hsutils/nearestname.h"
#include "vintakd/config/ConfigFile.h"

namespace {

constexpr uint64_t kMegabyte = uint64_t{1} << 20;

struct NumberEntry {
    const char* name;
    uint64_t LimitValues::*field;
    uint64_t unit;
    uint64_t least;  ///< beside 0
    uint64_t most;
};

constexpr NumberEntry kNumbers[] = {
    {"ADDRESS_SPACE_MB", &LimitValues::addressSpaceBytes, kMegabyte, 64, uint64_t{1} << 30},
    {"FILE_SIZE_MB", &LimitValues::fileBytes, kMegabyte, 1, uint64_t{1} << 30},
    {"OUTPUT_SIZE_MB", &LimitValues::outputBytes, kMegabyte, 1, uint64_t{1} << 30},
    {"DESCRIPTORS", &LimitValues::descriptors, 1, 16, 1 << 20},
    {"CORE_SIZE_MB", &LimitValues::coreBytes, kMegabyte, 0, uint64_t{1} << 30},
    {"CPU_SECONDS", &LimitValues::cpuSeconds, 1, 1, 1 << 30},
    {"FRAME_CPU_SECONDS", &LimitValues::frameCpuSeconds, 1, 1, 1 << 30},
    {"DEADLINE_SECONDS", &LimitValues::deadlineSeconds, 1, 1, 1 << 30},
};

constexpr char kFilter[] = "SYSTEM_CALL_FILTER";

const NumberEntry* findNumber(const std::string& name) {
    const auto* const found = std::find_if(std::begin(kNumbers), std::end(kNumbers),
                                           [&name](const NumberEntry& entry) { return name == entry.name; });
    return found == std::end(kNumbers) ? nullptr : found;
}

/// The number in the entry's unit; nothing when it is none, or out of range.
std::optional<uint64_t> parseNumber(const NumberEntry& entry, const std::string& value) {
    uint64_t number = 0;
    const char* end = value.data() + value.size();
    const auto parsed = std::from_chars(value.data(), end, number);
    const bool inRange = number == 0 || (number >= entry.least && number <= entry.most);
    if (parsed.ec != std::errc() || parsed.ptr != end || !inRange) return std::nullopt;
    return number;
}

std::optional<std::string> nearestTo(const std::string& name) {
    if (name == kFilter || findNumber(name)) return std::nullopt;
    std::vector<std::string> known{kFilter};
    for (const NumberEntry& entry : kNumbers)
        known.emplace_back(entry.name);
    return nearestName(name, known);
}

std::optional<std::string> check(const ConfigLine& line) {
    if (line.name == kFilter) {
        if (line.value == "on" || line.value == "off") return std::nullopt;
        return "on or off is needed";
    }
    const NumberEntry& entry = *findNumber(line.name);
    if (parseNumber(entry, line.value)) return std::nullopt;
    return "a whole number from " + std::to_string(entry.least) + " to " + std::to_string(entry.most) +
           " is needed, or 0";
}

}  // namespace

LimitValues LimitValues::unlimited() {
    LimitValues limits;
    for (const NumberEntry& entry : kNumbers)
        limits.*entry.field = 0;
    limits.systemCallFilter = false;
    return limits;
}

LimitValues LimitValues::read(const char* folder, ConfigReport& report) {
    LimitValues limits;
    ConfigFile file(folder, "limits.conf", report);
    file.takeEntries(nearestTo, check);
    for (const NumberEntry& entry : kNumbers) {
        const ConfigLine* line = file.find(entry.name);
        if (line) limits.*entry.field = *parseNumber(entry, line->value) * entry.unit;
        file.hold(entry.name, std::to_string(limits.*entry.field / entry.unit), line);
    }
    const ConfigLine* line = file.find(kFilter);
    if (line) limits.systemCallFilter = line->value == "on";
    file.hold(kFilter, limits.systemCallFilter ? "on" : "off", line);
    return limits;
}
