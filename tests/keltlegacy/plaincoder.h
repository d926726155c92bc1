#pragma once

#include <cstdint>
#include <vector>

/// The coder in its plainest form, coefficient by coefficient and bit by bit, to compare with.
namespace plain {

using Bytes = std::vector<std::uint8_t>;

/// One line of samples, `step` apart; `wrap` forms the predictor's sum in 16 bits.
void transformLine(std::int64_t* x, int n, int step, bool wrap);

/// The whole stream, uncut, with its header.
Bytes compress(const Bytes& pixels, int bitsUsed, int bytesPerPixel, int w, int h);

/// Reproducible pictures: 0 noise, 1 gradient with noise, 2 constant, 3 extremes in blocks, 4 one bright
/// pixel, 5 checkerboard of extremes.
Bytes picture(int kind, int bytesPerPixel, int w, int h);
inline constexpr int pictureKinds = 6;

}  // namespace plain
