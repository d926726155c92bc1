#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

/// Progress over a number of files on standard error: where that is a terminal a bar with rate and time left,
/// and always one line for every file that failed. Colours only on a terminal, and not with NO_COLOR set.
/// Thread-safe.
class ProgressBar {
public:
    /// `total` is 0 while it is not known.
    explicit ProgressBar(size_t total);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    bool isOnTerminal() const { return m_terminal; }
    void setTotal(size_t total);

    void succeeded();
    /// As succeeded(), for a file that needed no work: the rate does not count it.
    void skipped();
    /// As succeeded(), with a line for each of the warnings.
    void warned(const std::string& file, const std::vector<std::string>& warnings);
    void failed(const std::string& file, const std::string& cause);
    /// A line that is neither.
    void say(const std::string& text);

private:
    using Clock = std::chrono::steady_clock;

    void tell(const std::string& file, const char* colour, const std::string& text);
    void advance();
    void erase() const;
    void draw();
    std::string state() const;

    std::mutex m_mutex;
    bool m_terminal;
    bool m_coloured;
    size_t m_total;
    size_t m_done = 0;
    size_t m_failed = 0;
    size_t m_skipped = 0;
    Clock::time_point m_start = Clock::now();
    Clock::time_point m_drawn{};
};
