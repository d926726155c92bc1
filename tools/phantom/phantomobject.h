#pragma once

#include <string>

/// What the phantom object holds.
struct PhantomOptions {
    unsigned frames = 12;
    unsigned size = 512;         ///< rows and columns
    bool framePositions = true;  ///< an item of per-frame functional groups for each frame
};

/// Writes an Enhanced CT object of the chest phantom to `path` (Explicit VR Little Endian, 12 bits in 16,
/// with frame positions, spacing, rescale and window in its functional groups). Throws std::runtime_error.
void writePhantom(const std::string& path, const PhantomOptions& options);
