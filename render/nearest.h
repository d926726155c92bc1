#pragma once

#include <vector>

#include "render/imageline.h"
#include "render/paintparameters.h"

/// Takes for every destination pixel the source pixel in which it begins.
template <class Pixel>
class PointSampler {
public:
    PointSampler(const Pixel* source, const PaintParameters& p) : m_source(source), m_p(p) {
        for (int i = 0; i < p.columns; ++i)
            m_columns.push_back((p.left + i) * p.source.cx / p.zoom.cx);
    }

    /// Fills `line` with the visible pixels of visible row `row`.
    void sampleRow(int row, Pixel* line) const {
        const int64_t y = (m_p.top + row) * m_p.source.cy / m_p.zoom.cy;
        const Pixel* pixels = m_source + y * m_p.source.cx;
        for (int i = 0; i < m_p.columns; ++i)
            line[i] = pixels[m_columns[static_cast<size_t>(i)]];
    }

private:
    const Pixel* m_source;
    PaintParameters m_p;
    std::vector<int64_t> m_columns;
};

/// Repeats every source pixel a whole number of times in both directions. The zoomed image may end before the
/// last source pixel or reach beyond it; there it is 0.
template <class Pixel>
class ReplicatingSampler {
public:
    ReplicatingSampler(const Pixel* source, const PaintParameters& p)
        : m_source(source), m_p(p), m_times(static_cast<int64_t>(p.scale)), m_first(p.left / m_times) {
        m_buffer.resize(static_cast<size_t>((p.left + p.columns - 1) / m_times - m_first + 1));
    }

    void sampleRow(int row, Pixel* line) {
        const auto y = static_cast<int>((m_p.top + row) / m_times);
        const auto* pixels = GetImageLine<Pixel>(m_source, m_p.source, static_cast<int>(m_first), y,
                                                 static_cast<int>(m_buffer.size()), m_buffer.data());
        for (int i = 0; i < m_p.columns; ++i)
            line[i] = pixels[(m_p.left + i) / m_times - m_first];
    }

private:
    const Pixel* m_source;
    PaintParameters m_p;
    int64_t m_times;
    int64_t m_first;  ///< First source column that is needed.
    std::vector<Pixel> m_buffer;
};
