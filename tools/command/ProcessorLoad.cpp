#include "tools/command/ProcessorLoad.h"

#include <algorithm>
#include <fstream>
#include <string>

// The first line of /proc/stat: "cpu", then user, nice, system, idle, iowait and more of the kind. Its last
// two, the time of guests, are in the first ones as well.
ProcessorLoad::Times ProcessorLoad::read() {
    constexpr int kIdle = 3, kWaiting = 4, kFields = 8;
    Times times;
    std::ifstream file("/proc/stat");
    std::string name;
    file >> name;
    uint64_t value = 0;
    for (int field = 0; field < kFields && file >> value; ++field) {
        times.all += value;
        if (field == kIdle || field == kWaiting) times.idle += value;
    }
    return times;
}

std::optional<double> ProcessorLoad::idleShare() {
    const Times before = m_last;
    m_last = read();
    if (m_last.all <= before.all) return {};
    // The kernel's idle time has been seen to go back a little.
    const uint64_t idle = m_last.idle - std::min(before.idle, m_last.idle);
    return std::min(1.0, static_cast<double>(idle) / static_cast<double>(m_last.all - before.all));
}
