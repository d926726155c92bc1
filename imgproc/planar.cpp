#include "imgproc/planar.h"

#include <algorithm>
#include <array>
#include <cstring>

// Without a second frame: the planes are split in halves until a piece fits a scratch area.

namespace {

constexpr size_t kScratchBytes = 6000;

void interleaveSmall(char* planes, size_t pixels) {
    std::array<char, kScratchBytes> scratch;
    std::memcpy(scratch.data(), planes, 3 * pixels);
    const char* red = scratch.data();
    const char* green = red + pixels;
    const char* blue = green + pixels;
    for (size_t i = 0; i < pixels; ++i) {
        planes[3 * i] = red[i];
        planes[3 * i + 1] = green[i];
        planes[3 * i + 2] = blue[i];
    }
}

/// Moves the last pixel of the three planes behind them, so that an even number of pixels is left.
void splitOffLastPixel(char* planes, size_t pixels) {
    const char red = planes[pixels - 1];
    const char green = planes[2 * pixels - 1];
    std::memmove(planes + pixels - 1, planes + pixels, pixels - 1);
    std::memmove(planes + 2 * (pixels - 1), planes + 2 * pixels, pixels - 1);
    planes[3 * pixels - 3] = red;
    planes[3 * pixels - 2] = green;
}

void interleave(char* planes, size_t pixels) {
    if (3 * pixels <= kScratchBytes) {
        interleaveSmall(planes, pixels);
        return;
    }
    if (pixels % 2 != 0) splitOffLastPixel(planes, pixels--);
    // Blocks R1 R2 G1 G2 B1 B2 of equal size become R1 G1 B1 R2 G2 B2.
    const size_t half = pixels / 2;
    const auto swapBlocks = [&](size_t a, size_t b) {
        std::swap_ranges(planes + a * half, planes + (a + 1) * half, planes + b * half);
    };
    swapBlocks(1, 2);
    swapBlocks(2, 4);
    swapBlocks(3, 4);
    interleave(planes, half);
    interleave(planes + 3 * half, half);
}

}  // namespace

void interleavePlanes(char* planes, size_t bytes) {
    if (bytes >= 3) interleave(planes, bytes / 3);
}
