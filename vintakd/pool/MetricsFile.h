#pragma once

#include <chrono>
#include <string>

/// The file with the pool's figures, which is replaced by renaming so that a reader always finds a whole one.
/// It is removed with the object. What cannot be written costs the file alone, and is said once in the log
/// until it can be again.
class MetricsFile {
public:
    MetricsFile() = default;
    ~MetricsFile();
    MetricsFile(const MetricsFile&) = delete;
    MetricsFile& operator=(const MetricsFile&) = delete;

    /// Empty: there is no file.
    void setPath(std::string path) { m_path = std::move(path); }
    /// Whether there is a file and it is time to write it again.
    bool isDue() const;
    void write(const std::string& text);

private:
    using Clock = std::chrono::steady_clock;

    std::string m_path;
    Clock::time_point m_dueAt;
    bool m_complained = false;
};
