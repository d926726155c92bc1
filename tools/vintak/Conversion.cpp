#include "tools/vintak/Conversion.h"

#include <thread>

void Conversion::run(size_t jobs) {
    std::vector<std::thread> workers;
    for (size_t i = 0; i < jobs; ++i)
        workers.emplace_back([this] { work(); });
    for (std::thread& worker : workers)
        worker.join();
    if (m_problem) std::rethrow_exception(m_problem);
}

void Conversion::work() {
    try {
        for (size_t i = m_next++; i < m_requests.size() && !m_stop; i = m_next++) {
            m_outcomes[i] = m_session.ask(m_requests[i]);
            tell(i);
        }
    } catch (...) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_problem = std::current_exception();
        m_stop = true;
    }
}

void Conversion::tell(size_t index) {
    const Outcome& outcome = m_outcomes[index];
    if (!outcome.done) {
        m_progress.failed(m_files[index], outcome.text);
    } else if (!outcome.warnings.empty()) {
        m_progress.warned(m_files[index], outcome.warnings);
    } else {
        m_progress.succeeded();
    }
}
