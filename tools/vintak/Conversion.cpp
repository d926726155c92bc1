#include "tools/vintak/Conversion.h"

#include <thread>
#include <vector>

void Conversion::run(size_t jobs) {
    std::vector<std::thread> workers;
    for (size_t i = 0; i < jobs; ++i)
        workers.emplace_back([this] { workOff(); });
    for (std::thread& worker : workers)
        worker.join();
    if (m_problem) std::rethrow_exception(m_problem);
}

void Conversion::workOff() {
    try {
        for (ConversionJob job; take(job);)
            m_work(job);
    } catch (...) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_problem) m_problem = std::current_exception();
    }
}

bool Conversion::take(ConversionJob& job) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_problem || m_exhausted) return false;
    m_exhausted = !m_source(job);
    return !m_exhausted;
}
