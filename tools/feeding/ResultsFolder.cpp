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

/// Another try will meet the same: it is the name that cannot be, not the file system that is in trouble.
bool isOfTheName(int error) {
    return error == ENOTDIR || error == EEXIST || error == ENAMETOOLONG;
}

void makeFolders(const std::string& path) {
    std::error_code error;
    fs::create_directories(path, error);
    if (isOfTheName(error.value())) throw NameTaken(path + ": " + error.message());
    if (error) throw std::runtime_error(path + ": " + error.message());
}

using Sync = int (*)(int);

void sync(const std::string& folder, Sync how) {
    const int file = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool synced = file >= 0 && how(file) == 0;
    const int error = errno;
    if (file >= 0) close(file);
    errno = error;
    if (!synced) refuse(folder);
}

}  // namespace

ResultsFolder::ResultsFolder(std::string path, std::string mark, bool sync)
    : m_path(std::move(path)), m_mark(std::move(mark)), m_sync(sync) {
    makeFolders(m_path + kPartial);
    const std::string host = hostName();
    for (int number = 0; m_lock < 0 && number < kMostCorners; ++number)
        if (takeCorner(m_path + kPartial + "/" + host + "." + std::to_string(number))) break;
    if (m_lock < 0) throw std::runtime_error(m_path + kPartial + " has no corner left");
    // A servant whose client was killed may still write into its place: that one goes the next time.
    std::error_code ignored;
    for (const fs::directory_entry& entry : fs::directory_iterator(m_corner))
        if (entry.path().filename() != "lock") fs::remove_all(entry.path(), ignored);
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
void ResultsFolder::checkAbove(const std::string& key) const {
    std::error_code none;
    for (size_t slash = key.find('/'); slash != std::string::npos; slash = key.find('/', slash + 1))
        if (fs::exists(m_path + "/" + key.substr(0, slash) + "/" + m_mark, none))
            throw NameTaken("the results of another object are in " + m_path + "/" + key.substr(0, slash));
}

// What is replaced is thrown away: that must be former results and nothing else.
void ResultsFolder::checkReplaceable(const std::string& folder, const std::string& shownAs) const {
    bool isEmpty = true;
    std::error_code error, none;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        if (entry->is_directory(none))
            throw NameTaken(shownAs + " is a folder with the results of other objects");
        isEmpty = false;
    }
    if (error.value() == ENOTDIR) throw NameTaken(shownAs + " is a file, and no folder of results");
    // Asked by its name: who replaces the same results now may empty those that were just gone through.
    if (!isEmpty && !fs::exists(folder + "/" + m_mark, none))
        throw NameTaken(shownAs + " is a folder with files that are no results");
}

bool ResultsFolder::checkAround(const std::string& key) const {
    checkAbove(key);
    struct stat status {};
    const std::string target = m_path + "/" + key;
    if (stat(target.c_str(), &status) != 0) return true;
    checkReplaceable(target, target);
    return false;
}

void ResultsFolder::publish(const std::string& place, const std::string& key) const {
    const std::string target = m_path + "/" + key;
    const size_t slash = key.rfind('/');
    if (checkAround(key) && slash != std::string::npos) makeFolders(m_path + "/" + key.substr(0, slash));
    if (m_sync) sync(place, syncfs);
    const std::string former = exchange(place, target);
    try {
        // Others put their results there too, perhaps since the look.
        if (!former.empty()) checkReplaceable(former, target);
        checkAbove(key);
    } catch (const NameTaken&) {
        takeBack(place, former, target);
        throw;
    }
    if (!former.empty()) discard(former);
    if (!m_sync) return;
    // The names, too: whoever gave the object deletes it now.
    for (std::string folder = target; folder != m_path;) {
        folder.resize(folder.rfind('/'));
        sync(folder, fsync);
    }
}

std::string ResultsFolder::exchange(const std::string& place, const std::string& target) {
    if (renameat2(AT_FDCWD, place.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) return "";
    if (errno == EEXIST && renameat2(AT_FDCWD, place.c_str(), AT_FDCWD, target.c_str(), RENAME_EXCHANGE) == 0)
        return place;
    if (isOfTheName(errno)) throw NameTaken(target + ": " + std::strerror(errno));
    if (errno != EINVAL) refuse(target);
    // NFS and a few others have plain renaming alone: what is there goes aside first.
    const std::string aside = place + ".old";
    const bool isNew = rename(target.c_str(), aside.c_str()) != 0;
    if (isNew && errno != ENOENT) refuse(target);
    if (rename(place.c_str(), target.c_str()) == 0) return isNew ? "" : aside;
    const int error = errno;
    if (!isNew) (void)rename(aside.c_str(), target.c_str());
    errno = error;
    refuse(target);
}

void ResultsFolder::takeBack(const std::string& place, const std::string& former, const std::string& target) {
    if (former == place) {
        if (renameat2(AT_FDCWD, place.c_str(), AT_FDCWD, target.c_str(), RENAME_EXCHANGE) != 0)
            refuse(target);
        return;
    }
    if (rename(target.c_str(), place.c_str()) != 0) refuse(target);
    if (!former.empty() && rename(former.c_str(), target.c_str()) != 0) refuse(target);
}
