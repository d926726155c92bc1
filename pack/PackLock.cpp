#include "pack/PackLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "pack/PackError.h"
#include "pack/layout.h"

namespace pack {

PackLock::PackLock(const std::string& prefix) {
    const size_t slash = prefix.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : prefix.substr(0, slash + 1);
    m_folder = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_folder < 0) return;  // then there is nothing in it either
    constexpr int kMost = 10'000;
    constexpr timespec kPause{0, 1'000'000};
    for (int i = 0; flock(m_folder, LOCK_EX | LOCK_NB) != 0; ++i) {
        if (errno != EWOULDBLOCK && errno != EINTR) return;  // a file system that has no locks
        if (i == kMost) {
            close(m_folder);
            throw PackError("somebody holds the folder " + folder);
        }
        nanosleep(&kPause, nullptr);
    }
}

PackLock::~PackLock() {
    if (m_folder >= 0) close(m_folder);
}

void PackLock::sync() const {
    if (m_folder >= 0 && fsync(m_folder) != 0)
        throw PackError("the folder of a pack cannot be written to the disk");
}

std::string PackLock::tokenOf(const std::string& prefix) {
    return prefix + std::string(kIndexSuffix) + ".part";
}

}  // namespace pack
