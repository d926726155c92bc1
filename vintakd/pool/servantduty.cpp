#include "vintakd/pool/servantduty.h"

#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "hsutils/Utils.h"

static_assert(std::atomic<int64_t>::is_always_lock_free);

std::string ServantReport::printable() const {
    return ::printable({request, strnlen(request, kTextBytes)});
}

ServantReports::ServantReports(size_t count) : m_bytes(count * sizeof(ServantReport)) {
    void* memory = mmap(nullptr, m_bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw std::runtime_error(std::string("no memory for the servants' reports: ") + std::strerror(errno));
    m_reports = static_cast<ServantReport*>(memory);
    std::uninitialized_default_construct_n(m_reports, count);
}

ServantReports::~ServantReports() {
    munmap(m_reports, m_bytes);
}

namespace servantduty {

namespace {

ServantReport* s_report = nullptr;
const ServantLimits* s_limits = nullptr;

}  // namespace

void adopt(ServantReport& report, const ServantLimits& limits) {
    s_report = &report;
    s_limits = &limits;
    end();
}

void begin() {
    if (!s_report) return;
    s_limits->allowRequest();
    s_report->request[0] = '\0';
    s_report->busySince = nanoTime();
}

void name(const std::string& text) {
    if (!s_report) return;
    const size_t count = std::min(text.size(), ServantReport::kTextBytes - 1);
    std::memcpy(s_report->request, text.data(), count);
    s_report->request[count] = '\0';
}

uint64_t outputBytes() {
    return s_limits ? s_limits->outputBytes : 0;
}

void end() {
    if (!s_report) return;
    s_report->busySince = 0;
    s_report->request[0] = '\0';
}

}  // namespace servantduty
