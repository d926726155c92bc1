#include "pack/SharedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>

#include "pack/PackError.h"

namespace pack {

SharedFile::~SharedFile() {
    if (m_file >= 0) close(m_file);
}

int SharedFile::release() {
    return std::exchange(m_file, -1);
}

int SharedFile::share() const {
    return fcntl(m_file, F_DUPFD_CLOEXEC, 0);
}

/// False, with errno, when it cannot be had. A `length` of 0 reaches to the end of the file, wherever it is.
bool SharedFile::lock(uint64_t offset, uint64_t length) const {
    struct flock range {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    range.l_start = static_cast<off_t>(offset);
    range.l_len = static_cast<off_t>(length);
    return fcntl(m_file, F_OFD_SETLK, &range) == 0;
}

/// Whoever took the file away before it was locked has it alone.
bool SharedFile::isAt(const std::string& path) {
    struct stat ours {};
    struct stat named {};
    if (fstat(m_file, &ours) != 0 || !S_ISREG(ours.st_mode) || lstat(path.c_str(), &named) != 0) return false;
    m_identity = ours.st_ino;
    m_size = static_cast<uint64_t>(ours.st_size);
    return ours.st_dev == named.st_dev && ours.st_ino == named.st_ino;
}

std::unique_ptr<SharedFile> SharedFile::range(const std::string& path, uint64_t offset, uint64_t length) {
    constexpr mode_t kMode = 0666;  // the mask of the process takes from it
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, kMode);
    if (file < 0) return nullptr;
    std::unique_ptr<SharedFile> shared(new SharedFile(file));
    return length > 0 && shared->lock(offset, length) && shared->isAt(path) ? std::move(shared) : nullptr;
}

std::unique_ptr<SharedFile> SharedFile::whole(const std::string& path) {
    const int file = open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (file < 0) return nullptr;
    std::unique_ptr<SharedFile> shared(new SharedFile(file));
    constexpr int kMost = 10'000;
    constexpr timespec kPause{0, 1'000'000};
    for (int i = 0; !shared->lock(0, 0); ++i) {
        if (errno != EAGAIN && errno != EACCES && errno != EINTR)
            throw PackError(path + " cannot be locked (" + std::strerror(errno) + ")");
        if (i == kMost) throw PackError("somebody holds " + path);
        nanosleep(&kPause, nullptr);
    }
    return shared->isAt(path) ? std::move(shared) : nullptr;
}

}  // namespace pack
