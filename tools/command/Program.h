#pragma once

#include <functional>
#include <string>
#include <vector>

/// What every program of the command line does around its commands: `answer` does what the words ask for and
/// returns an exit code (tools/exitcodes.h); what it throws is told on standard error and becomes an exit
/// code, as does output that cannot be written. Returns what main is to return.
int programMain(int argc, char* argv[], const std::function<int(const std::vector<std::string>&)>& answer);
