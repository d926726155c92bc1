#pragma once

#include <chrono>
#include <optional>
#include <string>

/// Tells the service manager how the daemon is, in its datagram protocol (`Type=notify`, `WatchdogSec`).
/// Where no manager listens (`NOTIFY_SOCKET` is unset) nothing is sent. A manager that cannot be reached is
/// no reason to end, so nothing here throws. Used by the supervisor's thread alone.
class ServiceNotifier {
public:
    /// Reads `NOTIFY_SOCKET` (a path, or "@" and an abstract name), `WATCHDOG_USEC` and `WATCHDOG_PID` and
    /// takes them out of the environment: whatever this process starts has no right to speak for it.
    ServiceNotifier();

    /// READY=1 and a status line.
    void ready(const std::string& status);
    /// STOPPING=1, once.
    void stopping();
    /// WATCHDOG=1, when half of the time has passed after which the manager takes the process for stuck.
    void alive();

    /// How long the loop that calls alive() may wait in between, given that it would wait for `longest`.
    std::chrono::milliseconds pause(std::chrono::milliseconds longest) const;

private:
    using Clock = std::chrono::steady_clock;

    bool send(const std::string& message, int flags) const;

    std::string m_address;  ///< as the system call wants it: an abstract name begins with NUL
    std::optional<std::chrono::microseconds> m_interval;
    Clock::time_point m_lastPing;  ///< of one that was sent
    bool m_isStopping = false;
};
