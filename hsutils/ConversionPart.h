#pragma once

#include <cstdint>

namespace vintakd {

/// A part of the conversion of one object that is spread over servants: some of its frames, by a request for
/// each part, then in the end one that puts the parts together, or one that removes all that they wrote.
struct ConversionPart {
    /// `specificFrame` of such a request: no object has so many frames, so that a daemon that does not know
    /// parts refuses it.
    static constexpr int32_t kNoFrame = INT32_MAX;
    static constexpr uint32_t kMostParts = 64;
    static constexpr uint32_t kJoin = 0;
    static constexpr uint32_t kUndo = UINT32_MAX;

    uint32_t number = kJoin;  ///< from 1, in the order of the frames; kJoin and kUndo: all of them
    uint32_t parts = 0;       ///< how many there are; 0: the conversion is not spread
    uint32_t first = 0;       ///< frame of the part, from 1; 1 for all of them
    uint32_t last = 0;        ///< frame of the part; that of the object for all of them

    bool isSpread() const { return parts > 0; }
    bool isOfFrames() const { return isSpread() && number != kJoin && number != kUndo; }
    bool joins() const { return isSpread() && number == kJoin; }
    bool undoes() const { return isSpread() && number == kUndo; }
};
static_assert(sizeof(ConversionPart) == 16);

}  // namespace vintakd
