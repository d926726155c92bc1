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

bool ElapsedTimer::reached(timeout limit) const {
    return limit != no_timeout && elapsed() >= limit.milliseconds();
}

int64_t ElapsedTimer::rest(timeout limit) const {
    return std::max<int64_t>(limit.milliseconds() - elapsed(), 1);
}

int64_t ElapsedTimer::elapsed() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - m_start).count();
}

}  // namespace ipc
