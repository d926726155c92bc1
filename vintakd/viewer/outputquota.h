#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

/// The bytes that all output files of one request may have together. Whoever writes takes them first.
class OutputQuota {
public:
    /// 0: no limit.
    explicit OutputQuota(uint64_t limit = 0) : m_limit(limit) {}

    /// Throws std::runtime_error that names what would be needed and the limit, when that is more.
    void take(uint64_t bytes) {
        const uint64_t needed = m_taken + bytes;
        if (m_limit != 0 && (needed > m_limit || m_exceeded)) {
            m_exceeded = true;
            throw std::runtime_error("the files of the request need " + std::to_string(needed) +
                                     " bytes or more, the limit is " + std::to_string(m_limit));
        }
        m_taken = needed;
    }
    /// Bytes that were taken.
    uint64_t taken() const { return m_taken; }
    /// Whether take() has refused.
    bool exceeded() const { return m_exceeded; }

private:
    uint64_t m_limit;
    uint64_t m_taken = 0;
    bool m_exceeded = false;
};
