#include "tools/command/Conversion.h"

#include <algorithm>
#include <chrono>
#include <system_error>

#include "tools/command/ProcessorLoad.h"

using namespace std::chrono_literals;

namespace {

constexpr auto kInterval = 200ms;     // some dozens of the ticks that the system counts in
constexpr double kMuchIdle = 0.10;    // more requests would use it
constexpr double kLittleIdle = 0.03;  // fewer would do

}  // namespace

void Conversion::run(size_t least, size_t most) {
    employ(std::min(least, most));
    if (least < most) adapt(least, most);
    for (std::thread& worker : m_workers)
        worker.join();
    if (m_problem) std::rethrow_exception(m_problem);
}

// Up quickly, for a disk that lets all wait; down slowly, because one more costs little.
void Conversion::adapt(size_t least, size_t most) {
    ProcessorLoad load;
    const auto isOver = [this] { return m_exhausted || m_problem; };
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            if (m_changed.wait_for(lock, kInterval, isOver)) return;
        }
        const double idle = load.idleShare().value_or(1);
        if (idle > kMuchIdle) {
            employ(std::min(2 * m_wanted, most));
        } else if (idle < kLittleIdle) {
            employ(std::max(m_wanted - 1, least));
        }
    }
}

/// From now on so many are to work, at least one.
void Conversion::employ(size_t workers) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_wanted = std::max<size_t>(workers, 1);
    }
    m_changed.notify_all();
    try {
        while (m_workers.size() < m_wanted)
            m_workers.emplace_back([this, worker = m_workers.size()] { workOff(worker); });
    } catch (const std::system_error&) {
        if (m_workers.empty()) throw;  // else it is done by those that there are
    }
}

void Conversion::workOff(size_t worker) {
    try {
        for (ConversionJob job; take(worker, job);)
            m_work(job);
    } catch (...) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_problem) m_problem = std::current_exception();
        m_changed.notify_all();
    }
}

bool Conversion::take(size_t worker, ConversionJob& job) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [&] { return worker < m_wanted || m_exhausted || m_problem; });
    if (m_problem || m_exhausted) return false;
    m_exhausted = !m_source(job);
    if (m_exhausted) m_changed.notify_all();
    return !m_exhausted;
}
