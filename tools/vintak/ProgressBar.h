#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

/// Progress over a number of files on standard error: a bar where that is a terminal, and always one line for
/// every file that failed. Thread-safe.
class ProgressBar {
public:
    explicit ProgressBar(size_t total);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    void succeeded();
    /// As succeeded(), with a line for each of the warnings.
    void warned(const std::string& file, const std::vector<std::string>& warnings);
    void failed(const std::string& file, const std::string& cause);
    size_t failures() const { return m_failed; }
    size_t filesWithWarnings() const { return m_warned; }

private:
    void erase() const;
    void draw() const;

    std::mutex m_mutex;
    bool m_terminal;
    size_t m_total;
    size_t m_done = 0;
    size_t m_failed = 0;
    size_t m_warned = 0;
};
