#pragma once

#include <functional>
#include <string>
#include <vector>

namespace picture {

/// The words of a command over files.
struct CommandWords {
    std::vector<std::string> files;
    std::string output;     ///< -o, empty when not given.
    std::string desc;       ///< --desc, likewise.
    bool syntaxes = false;  ///< --syntaxes: then no file need be named
    int reduce = 0;         ///< --reduce: halvings of both sides.
};

/// What --help prints, and which options there are.
struct CommandHelp {
    const char* usage;
    const char* about;
    bool writesPicture;
};

/// Parses; false with the exit code in `exitCode` when there is nothing more to do: help was printed, or a
/// usage error.
bool parseWords(const std::vector<std::string>& args, const CommandHelp& help, CommandWords& words,
                int& exitCode);

/// Does something for every file and prints the reason of each that fails. Returns how many failed.
size_t forEachFile(const std::vector<std::string>& files,
                   const std::function<void(const std::string&)>& action);

}  // namespace picture
