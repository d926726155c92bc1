#pragma once

#include <sys/time.h>

#include <boost/date_time/posix_time/posix_time_types.hpp>
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

/// Whole milliseconds of wall-clock time from `start` to `now`.
int64_t elapsedMilliseconds(const timeval& start, const timeval& now);

/// A stop watch on the wall clock for the timed loops of this layer.
class ElapsedTimer {
public:
    ElapsedTimer() { gettimeofday(&m_start, nullptr); }

    /// Whether the elapsed time has reached `limit`; never for no_timeout.
    bool reached(timeout limit) const;
    /// Milliseconds until it does, 1 at least; `limit` is not no_timeout.
    int64_t rest(timeout limit) const;

private:
    int64_t elapsed() const;

    timeval m_start{};
};

}  // namespace ipc
