#include "vintakd/pool/DaemonInfo.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <utility>

std::string getRunPath(const char* fileName) {
    const char* run = getenv("RUN");
    return std::string(run ? run : "") + "/" + fileName;
}

int lockfile(int descriptor) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = 0;
    lock.l_len = 0;
    return fcntl(descriptor, F_SETLK, &lock);
}

DaemonInfo::DaemonInfo(std::string pidFilePath, std::string lockFilePath, bool checkOnly)
    : m_pidFilePath(std::move(pidFilePath)), m_lockFilePath(std::move(lockFilePath)) {
    if (checkOnly) {
        look();
    } else {
        takeOver();
    }
}

DaemonInfo::~DaemonInfo() {
    if (!m_owner) return;
    unlink(m_pidFilePath.c_str());
    unlink(m_lockFilePath.c_str());
}

void DaemonInfo::look() {
    struct stat status {};
    m_running = stat(m_pidFilePath.c_str(), &status) == 0 && stat(m_lockFilePath.c_str(), &status) == 0;
    if (m_running) readPid();
}

void DaemonInfo::readPid() {
    std::ifstream file(m_pidFilePath);
    if (!(file >> m_daemonPid)) m_daemonPid = 0;
}

/// The locked lock file, or -1. The daemon that held the lock deletes the file as it ends; a lock on a file
/// that no longer carries the name protects nobody, so that one is let go and the next one tried.
int DaemonInfo::openAndLock() {
    for (;;) {
        const int descriptor = open(m_lockFilePath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        if (descriptor < 0) return -1;
        if (lockfile(descriptor) != 0) {
            const int error = errno;
            m_running = error == EAGAIN || error == EACCES;
            close(descriptor);
            errno = error;
            return -1;
        }
        struct stat named {};
        struct stat locked {};
        if (stat(m_lockFilePath.c_str(), &named) == 0 && fstat(descriptor, &locked) == 0 &&
            named.st_dev == locked.st_dev && named.st_ino == locked.st_ino) {
            return descriptor;
        }
        close(descriptor);
    }
}

void DaemonInfo::takeOver() {
    const int descriptor = openAndLock();  // never closed: the lock is to last as long as the process
    if (descriptor < 0) {
        if (m_running) readPid();
        if (!m_running)
            m_problem = "no lock and no pid file: " + m_lockFilePath + ": " + std::strerror(errno);
        return;
    }
    if (ftruncate(descriptor, 0) != 0 || write(descriptor, "lock", 4) != 4) {
        // The lock holds whatever the file's content is.
    }
    m_owner = true;
    const std::string pid = std::to_string(getpid());
    const int pidFile = open(m_pidFilePath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (pidFile < 0 || write(pidFile, pid.data(), pid.size()) != static_cast<ssize_t>(pid.size()))
        m_problem = "no pid file: " + m_pidFilePath + ": " + std::strerror(errno);
    if (pidFile >= 0) close(pidFile);
}
