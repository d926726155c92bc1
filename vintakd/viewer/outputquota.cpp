#include "vintakd/viewer/outputquota.h"

#include <stdexcept>
#include <string>

void OutputQuota::take(uint64_t bytes) {
    const uint64_t needed = m_taken + bytes;
    if (m_limit != 0 && (needed > m_limit || m_exceeded)) {
        m_exceeded = true;
        throw std::runtime_error("the files of the request need " + std::to_string(needed) +
                                 " bytes or more, the limit is " + std::to_string(m_limit));
    }
    m_taken = needed;
}
