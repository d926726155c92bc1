#include "vintakd/pool/MetricsFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "hsutils/Utils.h"
#include "vintakd/ipc/QXLogger.h"

namespace {

constexpr std::chrono::seconds kInterval{2};

std::string temporaryOf(const std::string& path) {
    return path + ".tmp";
}

}  // namespace

MetricsFile::~MetricsFile() {
    if (!m_path.empty()) unlink(m_path.c_str());
}

bool MetricsFile::isDue() const {
    return !m_path.empty() && Clock::now() >= m_dueAt;
}

void MetricsFile::write(const std::string& text) {
    m_dueAt = Clock::now() + kInterval;
    const bool written = replace(text);
    if (!written && !m_complained)
        OFLOG_WARN(GetQXLogger(),
                   "vintakd writes no metrics: " << printable(m_path) << ": " << std::strerror(errno));
    m_complained = !written;
}

/// False with errno where that fails; nothing stays of it.
bool MetricsFile::replace(const std::string& text) const {
    const std::string temporary = temporaryOf(m_path);
    // Whatever has the name, a pipe perhaps that nobody reads, is not written into.
    unlink(temporary.c_str());
    const int descriptor =
        open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (descriptor < 0) return false;
    fchmod(descriptor, 0644);  // the collector's account reads it, however narrow our umask is for results
    errno = EIO;
    bool done = ::write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (close(descriptor) != 0) done = false;
    if (done && rename(temporary.c_str(), m_path.c_str()) == 0) return true;
    const int error = errno;
    unlink(temporary.c_str());
    errno = error;
    return false;
}
