#pragma once

#include <cstdint>
#include <string>

/// Some frames of an object, which are converted without the others: each has to come out as it does behind
/// those before it. What is needed to tell whether it did stands beside.
struct FramePart {
    uint32_t first = 0;  ///< frame, from 1; 0: all frames are converted
    uint32_t last = 0;
    uint32_t firstFragment = 0;  ///< of compressed frames, where the first one begins; 0 of others
    uint32_t endFragment = 0;    ///< and where the one behind the last begins
    std::string colorModel{};    ///< that all of them decode to

    bool isSet() const { return first > 0; }
    uint32_t count() const { return last - first + 1; }
};
