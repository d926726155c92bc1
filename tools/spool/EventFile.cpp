#include "tools/spool/EventFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "tools/feeding/EventText.h"

EventFile::~EventFile() {
    if (m_file >= 0) close(m_file);
}

void EventFile::open() {
    struct stat status {};
    if (m_file >= 0 && stat(m_path.c_str(), &status) == 0 && status.st_ino == m_inode) return;
    if (m_file >= 0) {
        (void)sync();
        close(m_file);
    }
    m_inode = 0;
    m_file = ::open(m_path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0640);
    if (m_file < 0 || fstat(m_file, &status) != 0)
        throw std::runtime_error(m_path + ": " + std::strerror(errno));
    // Who was killed in the middle of a line left half of it, which would spoil the next one.
    char last = '\n';
    if (status.st_size > 0 && pread(m_file, &last, 1, status.st_size - 1) == 1 && last != '\n' &&
        ::write(m_file, "\n", 1) != 1)
        throw std::runtime_error(m_path + ": " + std::strerror(errno));
    m_inode = status.st_ino;
}

void EventFile::write(const SpoolObject& object, const WorkResult& result) {
    open();
    const std::string line = eventText(object, result) + "\n";
    const off_t end = lseek(m_file, 0, SEEK_END);
    errno = ENOSPC;
    if (::write(m_file, line.data(), line.size()) == static_cast<ssize_t>(line.size())) {
        m_unsynced = true;
        return;
    }
    const std::string cause = std::strerror(errno);
    // Half a line would spoil the next one too.
    if (end >= 0) (void)ftruncate(m_file, end);
    throw std::runtime_error(m_path + ": " + cause);
}

bool EventFile::sync() {
    const bool isOnDisk = !m_unsynced || fdatasync(m_file) == 0;
    m_unsynced = false;
    return isOnDisk;
}
