#pragma once

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <chrono>
#include <cstdint>

namespace ipc {

/// A duration in milliseconds, 32 bits wide wherever it lies in shared memory. Blocking waits take every
/// value of 0 or below as "no limit", spinning waits only -1.
class timeout {
public:
    constexpr timeout(int32_t milliseconds = -1) : m_milliseconds(milliseconds) {}

    constexpr int32_t milliseconds() const { return m_milliseconds; }
    constexpr bool operator==(const timeout&) const = default;

    /// The absolute UTC time at which a wait that begins now ends.
    boost::posix_time::ptime deadline() const { return deadlineFrom(universalNow()); }

    /// The deadline of a wait that began at `start`; special values (not a time, infinities) pass unchanged.
    boost::posix_time::ptime deadlineFrom(const boost::posix_time::ptime& start) const;

private:
    static boost::posix_time::ptime universalNow();

    int32_t m_milliseconds;
};

static_assert(sizeof(timeout) == 4);

/// The wait that never ends.
inline constexpr timeout no_timeout{-1};

/// A stop watch for the timed loops of this layer. Not on the wall clock: one that is set back would let a
/// loop wait for hours, and one that is set forward would have a lock in living hands forced free.
class ElapsedTimer {
    using Clock = std::chrono::steady_clock;

public:
    /// Whether the elapsed time has reached `limit`; never for no_timeout.
    bool reached(timeout limit) const;
    /// Milliseconds until it does, 1 at least; `limit` is not no_timeout.
    int64_t rest(timeout limit) const;

private:
    int64_t elapsed() const;

    Clock::time_point m_start = Clock::now();
};

}  // namespace ipc
