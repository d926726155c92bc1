#include "vintakd/ipc/timeout.h"

#include <algorithm>
#include <boost/date_time/posix_time/posix_time.hpp>

namespace ipc {

boost::posix_time::ptime timeout::universalNow() {
    return boost::posix_time::microsec_clock::universal_time();
}

boost::posix_time::ptime timeout::deadlineFrom(const boost::posix_time::ptime& start) const {
    if (start.is_special()) return start;
    return start + boost::posix_time::microseconds(static_cast<int64_t>(m_milliseconds) * 1000);
}

int64_t elapsedMilliseconds(const timeval& start, const timeval& now) {
    int64_t seconds = static_cast<int64_t>(now.tv_sec) - start.tv_sec;
    int64_t microseconds = static_cast<int64_t>(now.tv_usec) - start.tv_usec;
    if (microseconds < 0) {
        seconds -= 1;
        microseconds += 1'000'000;
    }
    return seconds * 1000 + microseconds / 1000;
}

bool ElapsedTimer::reached(timeout limit) const {
    return limit != no_timeout && elapsed() >= limit.milliseconds();
}

int64_t ElapsedTimer::rest(timeout limit) const {
    return std::max<int64_t>(limit.milliseconds() - elapsed(), 1);
}

int64_t ElapsedTimer::elapsed() const {
    timeval now{};
    gettimeofday(&now, nullptr);
    return elapsedMilliseconds(m_start, now);
}

}  // namespace ipc
