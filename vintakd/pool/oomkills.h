#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// How many processes of this process's control group the kernel has killed for want of memory; nothing where
/// it does not say. `root` stands before the system's paths.
std::optional<uint64_t> oomKills(const std::string& root = "");
