#pragma once

#include <string>
#include <vector>

/// `vintak show` and `vintak info`: each takes the words after its name, prints what it does and what goes
/// wrong, and returns an exit code of tools/exitcodes.h. Each knows --help. Neither needs the daemon.
int runShow(const std::vector<std::string>& args);
int runInfo(const std::vector<std::string>& args);
