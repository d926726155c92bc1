#pragma once

/// What `vintak` returns to its caller. 0 means that everything asked for was done.
enum ExitCode {
    kAllDone = 0,
    kSomeFailed = 1,
    kUsageError = 2,
    kNoDaemon = 3,
    kAllFailed = 4,
    kNotAllowed = 5,
    kRefused = 6,      ///< all failed, each at a limit
    kUnsupported = 7,  ///< all failed, each for an encoding that there is no decoder for
    kInterrupted = 130,
};

/// The code of a command over several files.
inline ExitCode exitCodeOf(unsigned long files, unsigned long failed) {
    if (failed == 0) return kAllDone;
    return failed < files ? kSomeFailed : kAllFailed;
}
