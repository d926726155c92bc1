#pragma once

#include <cstdint>
#include <vector>

#include "render/paintparameters.h"

/// The source pixels that one destination pixel covers along one axis. The first and the last count with
/// their own weights, those between with the width of a whole source pixel.
struct AverageSpan {
    int64_t first;
    int64_t count;  ///< 0 outside the source.
    uint64_t firstWeight;
    uint64_t lastWeight;  ///< When there is more than one.
};

/// Averaging along one axis: a source pixel is `zoom` units wide, a destination pixel `source` units.
struct AverageAxis {
    int64_t source;
    int64_t zoom;
    int64_t first;  ///< Source pixel in which the first destination pixel begins,
    int64_t phase;  ///< and how many units into it.

    void halve();
    /// The spans of `count` destination pixels in a source of `size` pixels.
    std::vector<AverageSpan> spans(int count, int64_t size) const;
};

/// Both axes and the units in one destination pixel, which every sum is divided by.
struct AverageGrid {
    AverageAxis x;
    AverageAxis y;
    int64_t area;
};

/// Large images get coarser grids, whose halves are cut; small ones lose their common factors, exactly.
AverageGrid averageGrid(const PaintParameters& p);

/// Averages the source pixels that a destination pixel covers, weighted with the area covered; what lies
/// outside the source counts as 0.
template <class Pixel, class Accumulator>
class AveragingSampler {
public:
    AveragingSampler(const Pixel* source, const PaintParameters& p);

    /// Fills `line` with the visible pixels of visible row `row`.
    void sampleRow(int row, Pixel* line);

private:
    using Channel = typename Pixel::Channel;
    static constexpr int kChannels = Pixel::kChannels;

    template <class Sum>
    void sampleRow(int row, Pixel* line, std::vector<Sum>& sums) const;
    template <class Sum>
    bool averageWholeColumns(const std::vector<Sum>& sums, Channel* out) const;
    template <class Sum>
    void addUpRows(const AverageSpan& span, std::vector<Sum>& sums) const;
    template <class Sum>
    Accumulator addUpColumns(const AverageSpan& span, const std::vector<Sum>& sums) const;

    const Channel* m_source;
    int64_t m_stride;  ///< Channels of a source row.
    AverageGrid m_grid;
    std::vector<AverageSpan> m_columns;
    std::vector<AverageSpan> m_rows;
    int64_t m_wholeColumns = 0;  ///< Source pixels of each destination pixel, where all of them count whole.
    // The rows' sums for every channel of a source row, in whichever width holds them.
    std::vector<uint32_t> m_sums;
    std::vector<uint64_t> m_wideSums;
};
