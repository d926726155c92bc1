#pragma once

#include <cstdint>

/// The bytes that all output files of one request may have together. Whoever writes takes them first.
class OutputQuota {
public:
    /// 0: no limit.
    explicit OutputQuota(uint64_t limit = 0) : m_limit(limit) {}

    /// Throws std::runtime_error that names what would be needed and the limit, when that is more.
    void take(uint64_t bytes);
    /// Whether take() has refused.
    bool exceeded() const { return m_exceeded; }

private:
    uint64_t m_limit;
    uint64_t m_taken = 0;
    bool m_exceeded = false;
};
