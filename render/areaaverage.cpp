#include "render/areaaverage.h"

#include <algorithm>
#include <limits>
#include <numeric>

namespace {

/// Above this many units the grids are coarsened.
constexpr int64_t kLargestArea = 0x1010100;
/// Below this one halving of one axis is enough.
constexpr int64_t kTwiceLargestArea = 0x2020202;

AverageAxis axisOf(int64_t first, int64_t source, int64_t zoom) {
    return {source, zoom, first * source / zoom, first * source % zoom};
}

void coarsen(AverageGrid& grid) {
    do {
        grid.y.halve();
        if (grid.area < kTwiceLargestArea) {
            grid.area /= 2;
            break;
        }
        grid.area /= 4;
        grid.x.halve();
    } while (grid.area > kLargestArea);
    // A zoom of a few pixels can be halved away; a source pixel then keeps one unit.
    grid.x.zoom = std::max<int64_t>(grid.x.zoom, 1);
    grid.y.zoom = std::max<int64_t>(grid.y.zoom, 1);
}

void reduce(AverageAxis& axis, int64_t& area) {
    const int64_t divisor = std::gcd(std::gcd(axis.source, axis.zoom), axis.phase);
    axis.source /= divisor;
    axis.zoom /= divisor;
    axis.phase /= divisor;
    area /= divisor;
}

template <class Sum, class Channel>
void addWeighted(Sum* __restrict sums, const Channel* __restrict samples, int64_t count, Sum weight) {
    if (weight == 1)
        for (int64_t i = 0; i < count; ++i)
            sums[i] += samples[i];
    else
        for (int64_t i = 0; i < count; ++i)
            sums[i] += weight * samples[i];
}

}  // namespace

void AverageAxis::halve() {
    phase /= 2;
    source /= 2;
    zoom /= 2;
}

std::vector<AverageSpan> AverageAxis::spans(int count, int64_t size) const {
    std::vector<AverageSpan> all(static_cast<size_t>(count));
    int64_t begin = first * zoom + phase;
    for (AverageSpan& span : all) {
        const int64_t end = begin + source;
        const int64_t firstPixel = begin / zoom;
        const int64_t endPixel = (end + zoom - 1) / zoom;
        const auto covered = [&](int64_t pixel) {
            return static_cast<uint64_t>(std::min(end, (pixel + 1) * zoom) - std::max(begin, pixel * zoom));
        };
        if (end > begin && firstPixel < size) {
            const int64_t lastPixel = std::min(endPixel, size) - 1;
            span = {firstPixel, lastPixel - firstPixel + 1, covered(firstPixel), covered(lastPixel)};
        }
        begin = end;
    }
    return all;
}

AverageGrid averageGrid(const PaintParameters& p) {
    AverageGrid grid{axisOf(p.left, p.source.cx, p.zoom.cx), axisOf(p.top, p.source.cy, p.zoom.cy),
                     p.source.cx * p.source.cy};
    if (grid.area > kLargestArea) {
        coarsen(grid);
    } else {
        reduce(grid.x, grid.area);
        reduce(grid.y, grid.area);
    }
    return grid;
}

template <class Pixel, class Accumulator>
AveragingSampler<Pixel, Accumulator>::AveragingSampler(const Pixel* source, const PaintParameters& p)
    : m_source(reinterpret_cast<const Channel*>(source)),
      m_stride(p.source.cx * kChannels),
      m_grid(averageGrid(p)),
      m_columns(m_grid.x.spans(p.columns, p.source.cx)),
      m_rows(m_grid.y.spans(p.rows, p.source.cy)) {
    constexpr int64_t kMostRowUnits =
        std::numeric_limits<uint32_t>::max() / std::numeric_limits<Channel>::max();
    if (m_grid.y.source <= kMostRowUnits)
        m_sums.resize(static_cast<size_t>(m_stride));
    else
        m_wideSums.resize(static_cast<size_t>(m_stride));
}

template <class Pixel, class Accumulator>
void AveragingSampler<Pixel, Accumulator>::sampleRow(int row, Pixel* line) {
    if (m_wideSums.empty())
        sampleRow(row, line, m_sums);
    else
        sampleRow(row, line, m_wideSums);
}

template <class Pixel, class Accumulator>
template <class Sum>
void AveragingSampler<Pixel, Accumulator>::sampleRow(int row, Pixel* line, std::vector<Sum>& sums) const {
    addUpRows(m_rows[static_cast<size_t>(row)], sums);
    const auto area = static_cast<double>(m_grid.area);
    auto* out = reinterpret_cast<Channel*>(line);
    for (const AverageSpan& column : m_columns) {
        const Accumulator total = addUpColumns(column, sums);
        for (int c = 0; c < kChannels; ++c)
            *out++ = static_cast<Channel>(static_cast<double>(static_cast<int64_t>(total.sum[c])) / area);
    }
}

template <class Pixel, class Accumulator>
template <class Sum>
void AveragingSampler<Pixel, Accumulator>::addUpRows(const AverageSpan& span, std::vector<Sum>& sums) const {
    std::fill(sums.begin(), sums.end(), 0);
    for (int64_t i = 0; i < span.count; ++i) {
        const uint64_t weight = i == 0                ? span.firstWeight
                                : i == span.count - 1 ? span.lastWeight
                                                      : static_cast<uint64_t>(m_grid.y.zoom);
        addWeighted(sums.data(), m_source + (span.first + i) * m_stride, m_stride, static_cast<Sum>(weight));
    }
}

template <class Pixel, class Accumulator>
template <class Sum>
Accumulator AveragingSampler<Pixel, Accumulator>::addUpColumns(const AverageSpan& span,
                                                               const std::vector<Sum>& sums) const {
    Accumulator total{};
    const Sum* pixel = sums.data() + span.first * kChannels;
    for (int64_t i = 1; i < span.count - 1; ++i)
        for (int c = 0; c < kChannels; ++c)
            total.sum[c] += pixel[i * kChannels + c];
    for (int c = 0; c < kChannels; ++c) {
        total.sum[c] *= static_cast<uint64_t>(m_grid.x.zoom);
        if (span.count > 0) total.sum[c] += span.firstWeight * pixel[c];
        if (span.count > 1) total.sum[c] += span.lastWeight * pixel[(span.count - 1) * kChannels + c];
    }
    return total;
}

template class AveragingSampler<CPixelM08, CPixelDDD>;
template class AveragingSampler<CPixelM16, CPixelDDD>;
template class AveragingSampler<CPixelC08, CPixelCCC>;
