#include "tools/command/ProgressBar.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "hsutils/Utils.h"

namespace {

constexpr std::chrono::milliseconds kBetweenDrawings{100};

/// See no-color.org: any value that is not empty.
bool wantsColours() {
    const char* refused = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return (!refused || !*refused) && terminal && std::string_view(terminal) != "dumb";
}

std::string timeText(double seconds) {
    const auto whole = static_cast<unsigned long>(seconds);
    char text[48];
    if (whole >= 3600)
        (void)snprintf(text, sizeof text, "%lu:%02lu:%02lu", whole / 3600, whole / 60 % 60, whole % 60);
    else
        (void)snprintf(text, sizeof text, "%lu:%02lu", whole / 60, whole % 60);
    return text;
}

}  // namespace

ProgressBar::ProgressBar(size_t total)
    : m_terminal(isatty(STDERR_FILENO) != 0), m_coloured(m_terminal && wantsColours()), m_total(total) {
    draw();
}

ProgressBar::~ProgressBar() {
    erase();
    (void)fflush(stderr);
}

void ProgressBar::setTotal(size_t total) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_total = total;
}

void ProgressBar::succeeded() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    advance();
}

void ProgressBar::skipped() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_skipped;
    advance();
}

void ProgressBar::warned(const std::string& file, const std::vector<std::string>& warnings) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const std::string& warning : warnings)
        tell(file, "\033[33m", "warning: " + warning);
    advance();
}

void ProgressBar::failed(const std::string& file, const std::string& cause) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_failed;
    tell(file, "\033[31m", cause);
    advance();
}

void ProgressBar::say(const std::string& text) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    erase();
    fprintf(stderr, "%s\n", printable(text).c_str());
}

void ProgressBar::tell(const std::string& file, const char* colour, const std::string& text) {
    erase();
    m_drawn = {};
    fprintf(stderr, "%s: %s%s%s\n", printable(file).c_str(), m_coloured ? colour : "",
            printable(text).c_str(), m_coloured ? "\033[0m" : "");
}

void ProgressBar::advance() {
    ++m_done;
    draw();
}

void ProgressBar::erase() const {
    if (m_terminal) fputs("\r\033[K", stderr);
}

std::string ProgressBar::state() const {
    constexpr size_t kWidth = 40;
    std::string text;
    if (m_total > 0) {
        const size_t filled = kWidth * std::min(m_done, m_total) / m_total;
        text = "[" + std::string(filled, '#') + std::string(kWidth - filled, '.') + "] ";
    }
    text += std::to_string(m_done);
    if (m_total > 0) text += "/" + std::to_string(m_total);
    if (m_failed > 0) text += ", " + std::to_string(m_failed) + " failed";
    const double seconds = std::chrono::duration<double>(Clock::now() - m_start).count();
    const size_t worked = m_done - m_skipped;
    if (worked == 0 || seconds <= 0) return text;
    const double rate = static_cast<double>(worked) / seconds;
    char number[32];
    (void)snprintf(number, sizeof number, ", %.1f/s", rate);
    text += number;
    if (m_total > m_done) text += ", " + timeText(static_cast<double>(m_total - m_done) / rate) + " left";
    return text;
}

void ProgressBar::draw() {
    if (!m_terminal || (m_total == 0 && m_done == 0)) return;
    const Clock::time_point now = Clock::now();
    if (now - m_drawn < kBetweenDrawings && m_done != m_total) return;
    m_drawn = now;
    fprintf(stderr, "\r\033[K%s", state().c_str());
    (void)fflush(stderr);
}
