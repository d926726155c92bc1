#pragma once

#include <iosfwd>
#include <string>

/// The diagnostic trace: a very verbose log, one file per process, that a one-byte shared-memory switch turns
/// on and off for every process of the system at once. Callers ask IsEnabled() first and build the text only
/// then. Environment: VINTAKD_TRACE_SWITCH names another switch object than "/vintaklog" ("-": no trace at
/// all), VINTAKD_TRACE_PREFIX another file prefix than the fixed one. Thread-safe, also across a fork.
class VintakLog {
public:
    /// Whether the trace is on; maps the switch on first use, creating it (off) where there is none.
    static bool IsEnabled();
    /// Sets the switch for all processes; false when it cannot be mapped.
    static bool Enable(bool on);
    /// Writes one line (time, process, thread, text) to this process's trace file with a single write, then
    /// syncs it. Where the file cannot be opened nothing is written, and the next line tries again.
    static void Log(const std::string& text);

private:
    static bool mapSwitch();

    static volatile char* s_shData;
    static int s_fdLog;
};

/// Writes "[", the local time in microseconds and "] "; throws std::runtime_error when there is no local
/// time.
std::ostream& printNow(std::ostream& out);
