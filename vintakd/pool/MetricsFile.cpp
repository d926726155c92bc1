#include "vintakd/pool/MetricsFile.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "hsutils/Utils.h"
#include "hsutils/replacefile.h"
#include "vintakd/ipc/QXLogger.h"

namespace {

constexpr std::chrono::seconds kInterval{2};

}  // namespace

MetricsFile::~MetricsFile() {
    if (!m_path.empty()) unlink(m_path.c_str());
}

bool MetricsFile::isDue() const {
    return !m_path.empty() && Clock::now() >= m_dueAt;
}

void MetricsFile::write(const std::string& text) {
    m_dueAt = Clock::now() + kInterval;
    const bool written = replaceFile(m_path, text);
    if (!written && !m_complained)
        OFLOG_WARN(GetQXLogger(),
                   "vintakd writes no metrics: " << printable(m_path) << ": " << std::strerror(errno));
    m_complained = !written;
}
