#include "tools/picture/window.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

namespace picture {
namespace {

/// Brightness from 0 to 1 of a modality value; windows of width 1 and below are a threshold.
double brightness(double value, const DisplayWindow& window) {
    const double width = std::fabs(window.width);
    if (!(width > 1)) return value > window.center - 0.5 ? 1 : 0;
    return std::clamp((value - (window.center - 0.5)) / (width - 1) + 0.5, 0.0, 1.0);
}

}  // namespace

DisplayWindow windowOverRange(std::span<const uint16_t> samples) {
    if (samples.empty()) return {};
    const auto [least, greatest] = std::minmax_element(samples.begin(), samples.end());
    DisplayWindow window;
    window.width = *greatest - *least + 1.0;
    window.center = *least + window.width / 2;
    return window;
}

std::vector<uint8_t> applyWindow(std::span<const uint16_t> samples, const DisplayWindow& window) {
    constexpr size_t kSampleValues = 65536;
    const auto bytes = std::make_unique<std::array<uint8_t, kSampleValues>>();
    for (size_t sample = 0; sample < kSampleValues; ++sample) {
        double grey = brightness(static_cast<double>(sample) * window.slope + window.intercept, window);
        if (!(grey > 0)) grey = 0;  // Also what is no number.
        (*bytes)[sample] = static_cast<uint8_t>(std::lround(255 * (window.inverted ? 1 - grey : grey)));
    }
    std::vector<uint8_t> result(samples.size());
    std::transform(samples.begin(), samples.end(), result.begin(),
                   [&](uint16_t sample) { return (*bytes)[sample]; });
    return result;
}

}  // namespace picture
