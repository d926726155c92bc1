#pragma once

#include <chrono>

#include "hsutils/errorclass.h"

/// What becomes of an object after a try that came to nothing.
enum class Remedy : uint8_t {
    none,   ///< it will fail again: set it aside
    later,  ///< it may do better later: a few tries
    wait,   ///< not its fault at all: as long as it takes, and for all objects
};
Remedy remedyFor(ErrorClass kind);

/// Growing pauses: 1 s, then each time twice as long, at most a minute.
std::chrono::seconds pauseAfter(unsigned tries);
