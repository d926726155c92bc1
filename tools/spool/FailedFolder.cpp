#include "tools/spool/FailedFolder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "hsutils/Utils.h"

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& cause) {
    throw std::runtime_error(path + ": " + cause);
}

/// A file that nobody else has, made for the reason.
int makeReason(const std::string& path) {
    return open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
}

void write(int file, const std::string& path, const std::string& text) {
    errno = ENOSPC;
    bool written = ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (close(file) != 0) written = false;
    if (written) return;
    const int error = errno;
    unlink(path.c_str());
    fail(path, std::strerror(error));
}

std::string reasonOf(const std::string& path, ErrorClass kind, const std::string& cause) {
    char time[32];
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    (void)std::strftime(time, sizeof time, "%Y-%m-%dT%H:%M:%SZ", gmtime_r(&now, &parts));
    return "object: " + printable(path) + "\nclass: " + nameOf(kind) + "\ncause: " + printable(cause) +
           "\ntime: " + time + "\n";
}

/// Never over another file.
bool move(const std::string& from, const std::string& to, std::error_code& error) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
    error = {errno, std::generic_category()};
    if (errno != EXDEV && errno != EINVAL) return false;
    error.clear();
    if (!fs::copy_file(from, to, error)) {
        std::error_code ignored;
        if (error != std::errc::file_exists) fs::remove(to, ignored);  // half a copy
        return false;
    }
    return fs::remove(from, error);
}

}  // namespace

FailedFolder::FailedFolder(std::string folder) : m_folder(std::move(folder)) {
    std::error_code error;
    fs::create_directories(m_folder, error);
    if (error) fail(m_folder, error.message());
    if (access(m_folder.c_str(), W_OK | X_OK) != 0) fail(m_folder, std::strerror(errno));
}

bool FailedFolder::isForIt(ErrorClass kind) {
    switch (kind) {
        case ErrorClass::object:
        case ErrorClass::unsupported:
        case ErrorClass::decode:
        case ErrorClass::limit:
        case ErrorClass::crash:
            return true;
        default:
            return false;
    }
}

std::string FailedFolder::take(const std::string& path, const std::string& kept, ErrorClass kind,
                               const std::string& cause) const {
    constexpr int kTries = 10000;
    constexpr size_t kLongest = NAME_MAX - std::string_view(".9999.reason.txt").size();
    const std::string folder = m_folder + "/" + kept;
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) fail(folder, error.message());
    // Both names must be possible, and show that they belong together.
    const std::string base = folder + fs::path(path).filename().string().substr(0, kLongest);
    for (int number = 0; number < kTries; ++number) {
        std::string target = number == 0 ? base : base + "." + std::to_string(number);
        const std::string reason = target + ".reason.txt";
        if (fs::exists(fs::symlink_status(target, error))) continue;
        const int file = makeReason(reason);
        if (file < 0 && errno == EEXIST) continue;
        if (file < 0) fail(reason, std::strerror(errno));
        write(file, reason, reasonOf(path, kind, cause));
        error.clear();
        if (move(path, target, error)) return target;
        unlink(reason.c_str());
        if (error != std::errc::file_exists) fail(path, "cannot be moved: " + error.message());
    }
    fail(base, "too many files of this name");
}
