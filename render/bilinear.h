#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "render/paintparameters.h"

/// One axis of the interpolation: for every destination position the two source pixels between which it lies
/// and the weight, out of `grid`, of the first.
struct BilinearAxis {
    struct Position {
        int64_t previous;
        int64_t current;
        int64_t phase;
    };
    int64_t grid;
    std::vector<Position> positions;
};

/// `first`: the first visible position, of `count`, of a source of `source` pixels painted `zoom` large.
/// `scale`: of the whole picture: near a whole number the axis uses that number.
BilinearAxis bilinearAxis(int64_t first, int count, int64_t source, int64_t zoom, double scale);

/// Interpolates between the four source pixels around a destination pixel; beyond the edge, the edge goes on.
template <class Pixel>
class BilinearSampler {
public:
    BilinearSampler(const Pixel* source, const PaintParameters& p)
        : m_source(reinterpret_cast<const Channel*>(source)),
          m_stride(p.source.cx * kChannels),
          m_x(bilinearAxis(p.left, p.columns, p.source.cx, p.zoom.cx, p.scale)),
          m_y(bilinearAxis(p.top, p.rows, p.source.cy, p.zoom.cy, p.scale)) {}

    void sampleRow(int row, Pixel* line) const {
        const BilinearAxis::Position& y = m_y.positions[static_cast<size_t>(row)];
        const Channel* above = m_source + y.previous * m_stride;
        const Channel* below = m_source + y.current * m_stride;
        const uint64_t area = static_cast<uint64_t>(m_x.grid) * static_cast<uint64_t>(m_y.grid);
        auto* out = reinterpret_cast<Channel*>(line);
        for (const BilinearAxis::Position& x : m_x.positions)
            for (int c = 0; c < kChannels; ++c) {
                const int64_t a = x.previous * kChannels + c, b = x.current * kChannels + c;
                const int64_t upper = above[a] * x.phase + above[b] * (m_x.grid - x.phase);
                const int64_t lower = below[a] * x.phase + below[b] * (m_x.grid - x.phase);
                *out++ = static_cast<Channel>(
                    static_cast<uint64_t>(upper * y.phase + lower * (m_y.grid - y.phase)) / area);
            }
    }

private:
    using Channel = typename Pixel::Channel;
    static constexpr int kChannels = Pixel::kChannels;

    const Channel* m_source;
    int64_t m_stride;
    BilinearAxis m_x;
    BilinearAxis m_y;
};
