#pragma once

#include <string>
#include <vector>

/// The subcommands: each takes the words after its name and returns an exit code (tools/exitcodes.h). Each
/// knows
/// --help. They throw UsageError for a command line that makes no sense, and NoDaemon when there is nobody to
/// ask.
int runConvert(const std::vector<std::string>& arguments);
int runDump(const std::vector<std::string>& arguments);
int runQuery(const std::vector<std::string>& arguments);
int runPing(const std::vector<std::string>& arguments);
int runHealth(const std::vector<std::string>& arguments);
int runMetrics(const std::vector<std::string>& arguments);
int runCheckConfig(const std::vector<std::string>& arguments);
int runStatus(const std::vector<std::string>& arguments);
int runPack(const std::vector<std::string>& arguments);
int runUnpack(const std::vector<std::string>& arguments);
int runVerify(const std::vector<std::string>& arguments);
int runTrace(const std::vector<std::string>& arguments);
