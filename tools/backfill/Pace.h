#pragma once

#include <algorithm>
#include <chrono>

/// Lets through so many a second, and none in advance.
class Pace {
public:
    using Clock = std::chrono::steady_clock;

    /// 0: as many as come.
    explicit Pace(double perSecond) : m_perSecond(perSecond) {}

    /// When the next one may go.
    Clock::time_point next() const { return m_next; }
    /// One goes now.
    void went(Clock::time_point now) {
        if (m_perSecond <= 0) return;
        const auto step =
            std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1 / m_perSecond));
        // What was missed by a round of the caller may be made up for, a pause may not.
        m_next =
            std::max(m_next, now - std::max<Clock::duration>(step, std::chrono::milliseconds(500))) + step;
    }

private:
    double m_perSecond;
    Clock::time_point m_next;
};
