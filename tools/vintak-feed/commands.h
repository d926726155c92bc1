#pragma once

#include <string>
#include <vector>

/// The subcommands: each takes the words after its name and returns an exit code (tools/exitcodes.h). Each
/// knows
/// --help. They throw UsageError for a command line that makes no sense, and NoDaemon when there is nobody to
/// ask.
int runSpool(const std::vector<std::string>& arguments);
int runBackfill(const std::vector<std::string>& arguments);
int runSubmit(const std::vector<std::string>& arguments);
int runWork(const std::vector<std::string>& arguments);
