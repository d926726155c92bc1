#include "tools/feeding/RetryPolicy.h"

#include <algorithm>

Remedy remedyFor(ErrorClass kind) {
    switch (kind) {
        // A full disk, or a folder that is not the account's: the next object would meet the same.
        case ErrorClass::output:
            return Remedy::wait;
        // The file is there, it was claimed: storage that hangs, or a receiver's mask that somebody can mend.
        case ErrorClass::file:
        case ErrorClass::memory:
        case ErrorClass::exchange:
        // A servant may also be killed from outside, or stop with its daemon.
        case ErrorClass::crash:
            return Remedy::later;
        default:
            return Remedy::none;
    }
}

std::chrono::seconds pauseAfter(unsigned tries) {
    constexpr unsigned kMost = 60;
    return std::chrono::seconds(tries > 6 ? kMost : std::min(1U << (tries > 0 ? tries - 1 : 0), kMost));
}
