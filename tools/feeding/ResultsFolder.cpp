#include "tools/feeding/ResultsFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace {

/// Below the results, where nobody looks who does not look for hidden names.
constexpr const char* kPartial = "/.partial";
constexpr int kMostCorners = 1000;

[[noreturn]] void refuse(const std::string& path) {
    throw std::runtime_error(path + ": " + std::strerror(errno));
}

std::string hostName() {
    std::array<char, 256> name{};
    if (gethostname(name.data(), name.size() - 1) != 0 || name[0] == '\0' || std::strchr(name.data(), '/'))
        return "host";
    return name.data();
}

void makeFolders(const std::string& path) {
    std::error_code error;
    fs::create_directories(path, error);
    if (error) throw std::runtime_error(path + ": " + error.message());
}

}  // namespace

ResultsFolder::ResultsFolder(std::string path, std::string mark, bool sync)
    : m_path(std::move(path)), m_mark(std::move(mark)), m_sync(sync) {
    makeFolders(m_path + kPartial);
    const std::string host = hostName();
    for (int number = 0; m_lock < 0 && number < kMostCorners; ++number)
        if (takeCorner(m_path + kPartial + "/" + host + "." + std::to_string(number))) break;
    if (m_lock < 0) throw std::runtime_error(m_path + kPartial + " has no corner left");
    for (const fs::directory_entry& entry : fs::directory_iterator(m_corner))
        if (entry.path().filename() != "lock") discard(entry.path().string());
}

// A corner is had by whoever holds the lock on a file in it, which goes with the process; the file may have
// been deleted by the one before.
bool ResultsFolder::takeCorner(const std::string& corner) {
    if (mkdir(corner.c_str(), 0750) != 0 && errno != EEXIST) refuse(corner);
    const int file = open((corner + "/lock").c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0640);
    if (file < 0 && errno == ENOENT) return takeCorner(corner);
    if (file < 0) refuse(corner + "/lock");
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    struct stat status {};
    if (fcntl(file, F_OFD_SETLK, &lock) != 0) {
        const bool isTaken = errno == EAGAIN || errno == EACCES;
        if (!isTaken) refuse(corner + "/lock cannot be locked");
        close(file);
        return false;
    }
    if (fstat(file, &status) != 0 || status.st_nlink == 0) {
        close(file);
        return takeCorner(corner);
    }
    m_corner = corner;
    m_lock = file;
    return true;
}

ResultsFolder::~ResultsFolder() {
    std::error_code ignored;
    fs::remove_all(m_corner, ignored);
    close(m_lock);
}

std::string ResultsFolder::newPlace() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    std::string place = m_corner + "/" + std::to_string(time.tv_sec) + "-" + std::to_string(getpid()) + "-" +
                        std::to_string(++m_places);
    if (mkdir(place.c_str(), 0777) != 0) refuse(place);
    return place;
}

void ResultsFolder::discard(const std::string& place) {
    std::error_code error;
    fs::remove_all(place, error);
    if (error) throw std::runtime_error(place + " cannot be removed: " + error.message());
}

// Results of "a" would be thrown away with those of "a/b" in them, the next time that they are replaced.
bool ResultsFolder::checkAround(const std::string& key) const {
    for (size_t slash = key.find('/'); slash != std::string::npos; slash = key.find('/', slash + 1))
        if (fs::exists(m_path + "/" + key.substr(0, slash) + "/" + m_mark))
            throw NameTaken("the results of another object are in " + m_path + "/" + key.substr(0, slash));
    struct stat status {};
    const std::string target = m_path + "/" + key;
    if (stat(target.c_str(), &status) != 0) return true;
    std::error_code none;
    for (const fs::directory_entry& entry : fs::directory_iterator(target, none))
        if (entry.is_directory()) throw NameTaken(target + " is a folder with the results of other objects");
    return false;
}

void ResultsFolder::publish(const std::string& place, const std::string& key) const {
    const std::string target = m_path + "/" + key;
    const bool isNew = checkAround(key);
    if (m_sync) {
        const int folder = open(place.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        const bool synced = folder >= 0 && syncfs(folder) == 0;
        if (folder >= 0) close(folder);
        if (!synced) refuse(place);
    }
    if (isNew) {
        if (renameat2(AT_FDCWD, place.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) return;
        if (errno == ENOENT) makeFolders(target.substr(0, target.rfind('/')));
    }
    exchange(place, target);
    discard(place);
}

void ResultsFolder::exchange(const std::string& place, const std::string& target) {
    if (renameat2(AT_FDCWD, place.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) return;
    if (errno == EEXIST && renameat2(AT_FDCWD, place.c_str(), AT_FDCWD, target.c_str(), RENAME_EXCHANGE) == 0)
        return;
    if (errno != EINVAL) refuse(target);
    // NFS and a few others have plain renaming alone: what is there goes aside first.
    const std::string aside = place + ".old";
    if (rename(target.c_str(), aside.c_str()) != 0 && errno != ENOENT) refuse(target);
    if (rename(place.c_str(), target.c_str()) != 0) refuse(target);
    discard(aside);
}
