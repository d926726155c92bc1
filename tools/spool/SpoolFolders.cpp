#include "tools/spool/SpoolFolders.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace {

void makeFolder(const std::string& path, mode_t mode) {
    if (mkdir(path.c_str(), mode) == 0) {
        // A receiver of the group is to write there. Where the set-group-ID bit is forbidden its maker sets
        // it.
        if (mode & S_IWGRP && chmod(path.c_str(), mode | S_ISGID) != 0) (void)chmod(path.c_str(), mode);
        return;
    }
    struct stat status {};
    if (errno != EEXIST) throw std::runtime_error(path + ": " + std::strerror(errno));
    if (lstat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
        throw std::runtime_error(path + " is no folder");
}

std::string madeFolders(const std::string& root) {
    std::error_code error;
    fs::create_directories(root, error);
    if (error) throw std::runtime_error(root + ": " + error.message());
    for (const char* folder : {"/incoming", "/incoming/priority"})
        makeFolder(root + folder, 0770);
    for (const char* folder : {"/working", "/retry", "/done", "/failed"})
        makeFolder(root + folder, 0750);
    return root;
}

/// Two feeders would take each other's objects out of "working". The lock goes with its process.
int lockOn(const std::string& root) {
    const std::string path = root + "/.lock";
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0640);
    if (file < 0) throw std::runtime_error(path + ": " + std::strerror(errno));
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (fcntl(file, F_OFD_SETLK, &lock) == 0) return file;
    const bool isTaken = errno == EAGAIN || errno == EACCES;
    const std::string cause = std::strerror(errno);
    close(file);
    throw std::runtime_error(isTaken ? "another feeder is at work on " + root
                                     : path + " cannot be locked: " + cause);
}

}  // namespace

SpoolFolders::SpoolFolders(std::string root, bool keepDone)
    : m_root(std::move(root)),
      m_keepDone(keepDone),
      m_lock(lockOn(madeFolders(m_root))),
      m_failed(m_root + "/failed") {}

SpoolFolders::~SpoolFolders() {
    close(m_lock);
}

std::optional<SpoolObject> SpoolFolders::take(const std::string& folder, const std::string& name) const {
    const std::string from = m_root + "/" + folder, to = m_root + "/working/" + name;
    // A receiver can put a link in place of the priority folder, and files that are not its own are behind
    // it.
    const int file = open(from.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (file < 0) return std::nullopt;
    struct stat status {};
    const bool isFile =
        fstatat(file, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISDIR(status.st_mode);
    const bool isTaken = isFile && renameat2(file, name.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0;
    const int error = errno;
    close(file);
    if (!isTaken) {
        if (!isFile || error == ENOENT || error == EEXIST) return std::nullopt;
        throw std::runtime_error(from + "/" + name + " cannot be moved: " + std::strerror(error));
    }
    SpoolObject object = inWork(name);
    object.arrived = status.st_ctim;  // renaming gave it a new time
    return object;
}

SpoolObject SpoolFolders::inWork(const std::string& name) const {
    SpoolObject object{.name = name, .path = m_root + "/working/" + name};
    struct stat status {};
    if (lstat(object.path.c_str(), &status) != 0)
        throw std::runtime_error(object.path + ": " + std::strerror(errno));
    object.arrived = status.st_ctim;
    object.modified = status.st_mtim;
    object.size = status.st_size;
    return object;
}

bool SpoolFolders::isThere(const SpoolObject& object) {
    struct stat status {};
    return lstat(object.path.c_str(), &status) == 0 || errno != ENOENT;
}

std::string SpoolFolders::strangeness(const SpoolObject& object) {
    struct stat status {};
    if (lstat(object.path.c_str(), &status) != 0) return std::strerror(errno);
    if (S_ISLNK(status.st_mode)) return "is a symbolic link";
    return S_ISREG(status.st_mode) ? "" : "is not a regular file";
}

void SpoolFolders::rename(const SpoolObject& object, const std::string& folder) const {
    const std::string to = m_root + "/" + folder + "/" + object.name;
    if (::rename(object.path.c_str(), to.c_str()) != 0)
        throw std::runtime_error(object.path + " cannot be moved to " + folder + ": " + std::strerror(errno));
}

void SpoolFolders::finish(const SpoolObject& object) const {
    if (m_keepDone) return rename(object, "done");
    if (unlink(object.path.c_str()) != 0)
        throw std::runtime_error(object.path + " cannot be deleted: " + std::strerror(errno));
}

void SpoolFolders::park(const SpoolObject& object) const {
    rename(object, "retry");
}

void SpoolFolders::setAside(const SpoolObject& object, ErrorClass kind, const std::string& cause) const {
    m_failed.take(object.path, "", kind, cause);
}

std::vector<std::string> SpoolFolders::list(const std::string& folder) const {
    std::vector<std::string> names;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(m_root + "/" + folder, error))
        names.push_back(entry.path().filename().string());
    if (error) throw std::runtime_error(m_root + "/" + folder + ": " + error.message());
    return names;
}
