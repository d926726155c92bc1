#include "tools/vintak/ProgressBar.h"

#include <unistd.h>

#include <cstdio>

ProgressBar::ProgressBar(size_t total) : m_terminal(isatty(STDERR_FILENO) != 0), m_total(total) {
    draw();
}

ProgressBar::~ProgressBar() {
    erase();
}

void ProgressBar::succeeded() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_done;
    draw();
}

void ProgressBar::warned(const std::string& file, const std::vector<std::string>& warnings) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_done;
    ++m_warned;
    erase();
    for (const std::string& warning : warnings)
        fprintf(stderr, "%s: warning: %s\n", file.c_str(), warning.c_str());
    draw();
}

void ProgressBar::failed(const std::string& file, const std::string& cause) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_done;
    ++m_failed;
    erase();
    fprintf(stderr, "%s: %s\n", file.c_str(), cause.c_str());
    draw();
}

void ProgressBar::erase() const {
    if (m_terminal) fputs("\r\033[K", stderr);
}

void ProgressBar::draw() const {
    if (!m_terminal || m_total == 0) return;
    constexpr size_t kWidth = 40;
    const size_t filled = kWidth * m_done / m_total;
    fprintf(stderr, "\r\033[K[%s%s] %zu/%zu", std::string(filled, '#').c_str(),
            std::string(kWidth - filled, '.').c_str(), m_done, m_total);
    if (m_failed > 0) fprintf(stderr, ", %zu failed", m_failed);
    (void)fflush(stderr);
}
