#pragma once

#include <string>
#include <vector>

/// Makes this process the program `name` that belongs to `vintak`, with the same words and environment; looks
/// for it where it is installed and beside this program. Throws std::runtime_error where it cannot be had.
[[noreturn]] void becomeProgram(const std::string& name, const std::vector<std::string>& words);
