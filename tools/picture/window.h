#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace picture {

/// How stored samples become brightness: sample x slope + intercept is the modality value (0028,1052 and
/// 0028,1053), and the window's width and centre (0028,1050 and 0028,1051) say which values lie between black
/// and white. Inverted, as for MONOCHROME1, small modality values are bright.
struct DisplayWindow {
    double intercept = 0;
    double slope = 1;
    double width = 0;
    double center = 0;
    bool inverted = false;
};

/// A window over all samples of a picture, for pictures that come without one.
DisplayWindow windowOverRange(std::span<const uint16_t> samples);

/// The samples as bytes from 0, black, to 255, white.
std::vector<uint8_t> applyWindow(std::span<const uint16_t> samples, const DisplayWindow& window);

}  // namespace picture
