#include "tools/vintak/otherprogram.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace fs = std::filesystem;

void becomeProgram(const std::string& name, const std::vector<std::string>& words) {
    // Whoever lists processes sees the command that was given.
    std::string called = "vintak";
    std::vector<std::string> copies = words;
    std::vector<char*> arguments{called.data()};
    for (std::string& word : copies)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);

    const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path();
    const std::string installed = (folder / VINTAK_PROGRAMS / name).lexically_normal();
    execv(installed.c_str(), arguments.data());
    int cause = errno;
    if (cause == ENOENT) {
        execv((folder / name).c_str(), arguments.data());
        if (errno != ENOENT) cause = errno;
    }
    throw std::runtime_error("the program for \"" + words.front() + "\" could not be started: " + installed +
                             ": " + strerror(cause));
}
