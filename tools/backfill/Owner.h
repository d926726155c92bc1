#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

/// Who holds claims: a process, by what no other one shares. Its number alone is used again.
struct Owner {
    std::string host;   ///< its name
    std::string boot;   ///< of this start of the machine
    std::string space;  ///< the space in which the pid counts
    pid_t pid = 0;
    int64_t started = 0;  ///< clock ticks after the machine's start

    /// This process.
    static Owner self();
    /// Whether it is known to be gone. Of one on another host, or in another container, nothing is known.
    bool isGone() const;
};
