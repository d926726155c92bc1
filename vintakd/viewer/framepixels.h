#pragma once

#include <cstddef>
#include <cstdint>

/// A finished frame as its files are written from it: rows from top to bottom without gaps, and what a sample
/// means. Borrows the pixels.
struct FramePixels {
    const char* data = nullptr;
    size_t size = 0;  ///< bytes at data
    int columns = 0;
    int rows = 0;
    int bytesPerPixel = 1;  ///< 1 or 2: grey, 3: R, G, B
    int bitsUsed = 0;       ///< that the largest sample needs
    double rescaleIntercept = 0;
    double rescaleSlope = 1;
    double windowCenter = 0;
    double windowWidth = 0;  ///< negative for frames whose small values are bright

    uint64_t bytesNeeded() const {
        return uint64_t{static_cast<uint32_t>(columns)} * static_cast<uint32_t>(rows) *
               static_cast<uint32_t>(bytesPerPixel);
    }
    /// Whether all pixels are there.
    bool isWhole() const { return data != nullptr && size >= bytesNeeded(); }
};
