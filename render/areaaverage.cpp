#include "render/areaaverage.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <numeric>
#include <type_traits>

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
    for (int64_t i = 0; i < count; ++i)
        sums[i] += weight * samples[i];
}

/// `rows` rows of equal weight; four at a time, because reading and writing the sums is most of the work.
template <class Sum, class Channel>
void addRows(Sum* __restrict sums, const Channel* __restrict first, int64_t rows, int64_t stride,
             Sum weight) {
    for (; rows >= 4; rows -= 4, first += 4 * stride) {
        const Channel *second = first + stride, *third = second + stride, *fourth = third + stride;
        if (weight == 1)
            for (int64_t i = 0; i < stride; ++i)
                sums[i] +=
                    (static_cast<Sum>(first[i]) + second[i]) + (static_cast<Sum>(third[i]) + fourth[i]);
        else
            for (int64_t i = 0; i < stride; ++i)
                sums[i] += weight * ((static_cast<Sum>(first[i]) + second[i]) +
                                     (static_cast<Sum>(third[i]) + fourth[i]));
    }
    for (; rows > 0; --rows, first += stride)
        addWeighted(sums, first, stride, weight);
}

/// The averages of `width` neighbours each, 2^shift units together, all of the same weight.
template <int64_t width, class Sum, class Channel>
void averageWhole(const Sum* __restrict sums, Sum weight, int shift, Channel* __restrict out, int64_t count) {
    for (int64_t i = 0; i < count; ++i) {
        Sum sum = 0;
        for (int64_t k = 0; k < width; ++k)
            sum += sums[i * width + k];
        out[i] = static_cast<Channel>((weight * sum) >> shift);
    }
}

/// Whether the spans lie side by side, and all of their pixels count whole.
bool areWhole(const std::vector<AverageSpan>& spans, uint64_t weight) {
    int64_t next = spans.empty() ? 0 : spans.front().first;
    for (const AverageSpan& span : spans) {
        if (span.first != next || span.count != spans.front().count || span.firstWeight != weight ||
            span.lastWeight != weight)
            return false;
        next += span.count;
    }
    return !spans.empty();
}

/// The sum of `count` values that lie `step` apart. Mostly they are few: a loop over vectors then takes
/// longer to begin than all of them to add up.
template <ptrdiff_t step, class Sum>
uint64_t sumOf(const Sum* values, int64_t count) {
    uint64_t sum = 0;
    switch (count) {
        case 4:
            sum += values[3 * step];
            [[fallthrough]];
        case 3:
            sum += values[2 * step];
            [[fallthrough]];
        case 2:
            sum += values[step];
            [[fallthrough]];
        case 1:
            return sum + values[0];
        default:
            for (int64_t i = 0; i < count; ++i)
                sum += values[i * step];
            return sum;
    }
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
    constexpr int64_t kMostUnits = std::numeric_limits<uint32_t>::max() / std::numeric_limits<Channel>::max();
    // cppcheck-suppress knownConditionTrueFalse; it is not of colours
    if constexpr (kChannels == 1) {
        if (m_grid.area <= kMostUnits && std::has_single_bit(static_cast<uint64_t>(m_grid.area)) &&
            areWhole(m_columns, static_cast<uint64_t>(m_grid.x.zoom)))
            m_wholeColumns = m_columns.front().count;
    }
    if (m_grid.y.source <= kMostUnits)
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
    if (averageWholeColumns(sums, reinterpret_cast<Channel*>(line))) return;
    const auto area = static_cast<double>(m_grid.area);
    // Multiplying by the inverse of a power of two gives what dividing gives, and takes a fraction of the
    // time.
    const bool exact = std::has_single_bit(static_cast<uint64_t>(m_grid.area));
    const double factor = 1 / area;
    auto* out = reinterpret_cast<Channel*>(line);
    for (const AverageSpan& column : m_columns) {
        const Accumulator total = addUpColumns(column, sums);
        for (int c = 0; c < kChannels; ++c) {
            const auto sum = static_cast<double>(static_cast<int64_t>(total.sum[c]));
            *out++ = static_cast<Channel>(exact ? sum * factor : sum / area);
        }
    }
}

/// The same for a picture that is reduced to a half, a fourth, an eighth or a sixteenth; false for others.
template <class Pixel, class Accumulator>
template <class Sum>
bool AveragingSampler<Pixel, Accumulator>::averageWholeColumns(const std::vector<Sum>& sums,
                                                               Channel* out) const {
    const auto average = [&](auto width) {
        averageWhole<width>(sums.data() + m_columns.front().first, static_cast<Sum>(m_grid.x.zoom),
                            std::countr_zero(static_cast<uint64_t>(m_grid.area)), out,
                            static_cast<int64_t>(m_columns.size()));
        return true;
    };
    switch (m_wholeColumns) {
        case 2:
            return average(std::integral_constant<int64_t, 2>{});
        case 4:
            return average(std::integral_constant<int64_t, 4>{});
        case 8:
            return average(std::integral_constant<int64_t, 8>{});
        case 16:
            return average(std::integral_constant<int64_t, 16>{});
        default:
            return false;
    }
}

template <class Pixel, class Accumulator>
template <class Sum>
void AveragingSampler<Pixel, Accumulator>::addUpRows(const AverageSpan& span, std::vector<Sum>& sums) const {
    std::fill(sums.begin(), sums.end(), 0);
    const auto inner = static_cast<uint64_t>(m_grid.y.zoom);
    int64_t first = span.first, count = span.count;
    if (count > 1 && span.lastWeight != inner) {
        --count;
        addWeighted(sums.data(), m_source + (first + count) * m_stride, m_stride,
                    static_cast<Sum>(span.lastWeight));
    }
    if (count > 0 && span.firstWeight != inner) {
        addWeighted(sums.data(), m_source + first * m_stride, m_stride, static_cast<Sum>(span.firstWeight));
        ++first;
        --count;
    }
    addRows(sums.data(), m_source + first * m_stride, count, m_stride, static_cast<Sum>(inner));
}

template <class Pixel, class Accumulator>
template <class Sum>
Accumulator AveragingSampler<Pixel, Accumulator>::addUpColumns(const AverageSpan& span,
                                                               const std::vector<Sum>& sums) const {
    Accumulator total{};
    if (span.count == 0) return total;
    const Sum* pixel = sums.data() + span.first * kChannels;
    const Sum* last = pixel + (span.count - 1) * kChannels;
    const auto inner = static_cast<uint64_t>(m_grid.x.zoom);
    for (int c = 0; c < kChannels; ++c) {
        const uint64_t all = sumOf<kChannels>(pixel + c, span.count);
        // As if all counted with the inner weight; what the ends have less is taken off again.
        total.sum[c] = inner * all - (inner - span.firstWeight) * pixel[c];
        if (span.count > 1) total.sum[c] -= (inner - span.lastWeight) * last[c];
    }
    return total;
}

template class AveragingSampler<CPixelM08, CPixelDDD>;
template class AveragingSampler<CPixelM16, CPixelDDD>;
template class AveragingSampler<CPixelC08, CPixelCCC>;
