#pragma once

#include <mutex>
#include <string>

#include "tools/command/Conversion.h"
#include "tools/command/ProgressBar.h"
#include "tools/command/resultfiles.h"
#include "tools/exitcodes.h"

/// When a conversion began (since 1970) and how long it took, in seconds.
struct ConversionTime {
    double start = 0;
    double seconds = 0;
};

/// Tells what became of each object of `vintak convert`, and counts: lines for people on standard error, and
/// with `json` one JSON line for each object on standard output. Thread-safe.
class ConvertReport {
public:
    explicit ConvertReport(bool json) : m_json(json), m_progress(0) {}

    void converted(const ConversionJob& job, const Outcome& outcome, const ConversionTime& time);
    void skipped(const ConversionJob& job);
    /// `movedTo`: where the object was put aside, empty when it was not.
    void failed(const ConversionJob& job, const Outcome& outcome, const ConversionTime& time,
                const std::string& movedTo);
    /// Nobody began with it when the program was interrupted.
    void left(const FoundObject& object);

    ProgressBar& progress() { return m_progress; }
    size_t succeeded() const { return m_converted + m_skipped; }
    size_t leftOver() const { return m_left; }
    size_t objects() const { return m_converted + m_skipped + m_failed + m_left; }
    /// "3 converted (1 with warnings), 2 failed, 1 skipped".
    std::string summary() const;
    ExitCode exitCode() const;

private:
    void printJson(const ConversionJob& job, const char* result, const Outcome& outcome,
                   const ConversionTime& time, const std::string& movedTo);

    bool m_json;
    std::mutex m_mutex;
    ProgressBar m_progress;
    size_t m_converted = 0;
    size_t m_warned = 0;
    size_t m_skipped = 0;
    size_t m_failed = 0;
    size_t m_refused = 0;      ///< of the failed, by a limit
    size_t m_unsupported = 0;  ///< of the failed
    size_t m_left = 0;
};
