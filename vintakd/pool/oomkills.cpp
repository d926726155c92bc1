#include "vintakd/pool/oomkills.h"

#include <fstream>

std::optional<uint64_t> oomKills(const std::string& root) {
    constexpr char kUnified[] = "0::";
    std::ifstream groups(root + "/proc/self/cgroup");
    std::string line;
    while (std::getline(groups, line) && line.rfind(kUnified, 0) != 0) {
    }
    if (line.rfind(kUnified, 0) != 0) return std::nullopt;
    std::ifstream events(root + "/sys/fs/cgroup" + line.substr(sizeof kUnified - 1) + "/memory.events");
    std::string name;
    for (uint64_t count = 0; events >> name >> count;)
        if (name == "oom_kill") return count;
    return std::nullopt;
}
