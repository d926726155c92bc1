#pragma once

#include <atomic>
#include <optional>

#include "tests/shared/daemon_process.h"

using Clock = std::chrono::steady_clock;

/// A process that does one piece of a test's work. It ends without running what its parent registered, and
/// its messages go nowhere.
class Child {
public:
    /// `work` runs in the child; its text comes back to the parent.
    explicit Child(const std::function<std::string()>& work);
    /// Kills it if it still lives.
    ~Child();
    Child(Child&& other) noexcept;
    Child& operator=(Child&&) = delete;

    pid_t pid() const { return m_pid; }

    /// The text, when the work came to its end before `limit`; nothing when the child died or hangs.
    std::optional<std::string> text(Clock::time_point limit);

    /// Waits for the end; the signal that brought it, 0 when the work came to its end.
    int waitForEnd();

private:
    pid_t m_pid;
    int m_reading = -1;
};

/// A flag that a test sets and its children see.
class SharedFlag {
public:
    SharedFlag();
    ~SharedFlag();
    SharedFlag(const SharedFlag&) = delete;
    SharedFlag& operator=(const SharedFlag&) = delete;

    void set() { m_flag->store(true); }
    bool isSet() const { return m_flag->load(); }

private:
    std::atomic<bool>* m_flag;
};
