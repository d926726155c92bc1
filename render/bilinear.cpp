#include "render/bilinear.h"

namespace {

struct Grid {
    std::int64_t sourcePixel;       ///< Units of a source pixel
    std::int64_t destinationPixel;  ///< and of a destination pixel.
};

Grid gridOf(std::int64_t source, std::int64_t zoom, double scale) {
    constexpr double tolerance = 0.01;
    constexpr std::int64_t finest = 4095;
    const auto times = static_cast<std::int64_t>(scale + tolerance);
    if (std::fabs(scale - static_cast<double>(times)) <= tolerance) return {times, 1};
    for (; zoom > finest; zoom /= 2)
        source /= 2;
    return {zoom, source};
}

}  // namespace

BilinearAxis bilinearAxis(std::int64_t first, int count, std::int64_t source, std::int64_t zoom,
                          double scale) {
    const auto [grid, step] = gridOf(source, zoom, scale);
    BilinearAxis axis{grid, {}};
    axis.positions.reserve(static_cast<std::size_t>(count));

    std::int64_t current = first * step / grid;
    std::int64_t phase = grid / 2 - first * step % grid;
    if (phase < 0) {
        phase += grid;
        ++current;
    }
    for (int i = 0; i < count; ++i) {
        axis.positions.push_back({std::clamp<std::int64_t>(current - 1, 0, source - 1),
                                  std::clamp<std::int64_t>(current, 0, source - 1), phase});
        phase -= step;
        if (phase < 1) {
            phase += grid;
            ++current;
        }
    }
    return axis;
}
