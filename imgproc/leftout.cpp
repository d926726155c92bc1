#include "imgproc/leftout.h"

#include <algorithm>

void LeftOut::add(uint64_t begin, uint64_t end) {
    if (begin >= end) return;
    if (!m_ranges.empty() && m_ranges.back().end == begin) {
        m_ranges.back().end = end;
        return;
    }
    uint64_t before = 0;
    if (!m_ranges.empty()) before = m_ranges.back().before + (m_ranges.back().end - m_ranges.back().begin);
    m_ranges.push_back({begin, end, before});
}

LeftOut LeftOut::with(uint64_t begin, uint64_t end) const {
    LeftOut all;
    const auto next = at(begin);
    for (auto range = m_ranges.begin(); range != next; ++range)
        all.add(range->begin, range->end);
    all.add(begin, end);
    for (auto range = next; range != m_ranges.end(); ++range)
        all.add(range->begin, range->end);
    return all;
}

std::vector<LeftOut::Range>::const_iterator LeftOut::at(uint64_t position) const {
    return std::upper_bound(m_ranges.begin(), m_ranges.end(), position,
                            [](uint64_t place, const Range& range) { return place < range.end; });
}

uint64_t LeftOut::visible(uint64_t position) const {
    const auto range = at(position);
    return range != m_ranges.end() && range->begin <= position ? range->end : position;
}

uint64_t LeftOut::stop(uint64_t position, uint64_t end) const {
    const auto range = at(position);
    return range != m_ranges.end() ? std::min(range->begin, end) : end;
}

uint64_t LeftOut::bytesFrom(uint64_t position) const {
    const auto range = at(position);
    if (range == m_ranges.end()) return 0;
    const uint64_t all = m_ranges.back().before + (m_ranges.back().end - m_ranges.back().begin);
    return all - range->before - (std::max(position, range->begin) - range->begin);
}

uint64_t LeftOut::back(uint64_t position, uint64_t count) const {
    for (auto range = at(position); range != m_ranges.begin();) {
        --range;
        const uint64_t visible = position - range->end;
        if (count <= visible) break;
        count -= visible;
        position = range->begin;
    }
    return position - count;
}
