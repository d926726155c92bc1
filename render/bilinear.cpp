#include "render/bilinear.h"

namespace {

struct Grid {
    int64_t sourcePixel;       ///< Units of a source pixel
    int64_t destinationPixel;  ///< and of a destination pixel.
};

Grid gridOf(int64_t source, int64_t zoom, double scale) {
    constexpr double kTolerance = 0.01;
    constexpr int64_t kFinest = 4095;
    const auto times = static_cast<int64_t>(scale + kTolerance);
    if (std::fabs(scale - static_cast<double>(times)) <= kTolerance) return {times, 1};
    for (; zoom > kFinest; zoom /= 2)
        source /= 2;
    return {zoom, source};
}

}  // namespace

BilinearAxis bilinearAxis(int64_t first, int count, int64_t source, int64_t zoom, double scale) {
    const auto [grid, step] = gridOf(source, zoom, scale);
    BilinearAxis axis{grid, {}};
    axis.positions.reserve(static_cast<size_t>(count));

    int64_t current = first * step / grid;
    int64_t phase = grid / 2 - first * step % grid;
    if (phase < 0) {
        phase += grid;
        ++current;
    }
    for (int i = 0; i < count; ++i) {
        axis.positions.push_back({std::clamp<int64_t>(current - 1, 0, source - 1),
                                  std::clamp<int64_t>(current, 0, source - 1), phase});
        phase -= step;
        if (phase < 1) {
            phase += grid;
            ++current;
        }
    }
    return axis;
}
