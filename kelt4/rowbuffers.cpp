#include "kelt4/rowbuffers.h"

#include <algorithm>

namespace dvq::kelt4 {

namespace {

/// Hands out consecutive pieces of memory; with a null start it only adds up what is needed.
class Layout {
public:
    Layout(unsigned char* start, size_t elementSize) : m_start(start), m_elementSize(elementSize) {}

    void* take(size_t elements) {
        unsigned char* const piece = m_start == nullptr ? nullptr : m_start + m_used;
        m_used += (elements * m_elementSize + 63) / 64 * 64;
        return piece;
    }
    size_t used() const { return m_used; }

private:
    unsigned char* m_start;
    size_t m_elementSize;
    size_t m_used = 0;
};

void layOut(Layout& layout, ComponentRows& component, int width, int height, int levels) {
    for (int j = 0; j < levels; ++j) {
        LevelRows& level = component.levels[j];
        level.width = latticeSide(width, j);
        level.height = latticeSide(height, j);
        level.half = (level.width + 1) / 2 / kRowPad * kRowPad + 3 * kRowPad;
        level.next = 0;
        for (void*& row : level.rows)
            row = layout.take(2 * static_cast<size_t>(level.half));
    }
    for (int j = 0; j <= levels; ++j) {
        // At most a row and a half arrive at a time on top of an unfinished block.
        const auto side = static_cast<size_t>(latticeSide(width, j));
        component.classes[j] = {layout.take(2 * side + 4 * kBlock), 0, 0, 0};
    }
    component.row = layout.take(static_cast<size_t>(width) + 2 * kBlock);
}

}  // namespace

void RowBuffers::prepare(int components, int width, int height, int levels, size_t elementSize) {
    Layout measure(nullptr, elementSize);
    for (int c = 0; c < components; ++c)
        layOut(measure, m_components[c], width, height, levels);
    constexpr size_t kAlignment = 64;
    m_memory.clear();
    m_memory.resize(measure.used() + kAlignment);
    const auto address = reinterpret_cast<uintptr_t>(m_memory.data());
    Layout layout(m_memory.data() + (kAlignment - address % kAlignment) % kAlignment, elementSize);
    for (int c = 0; c < components; ++c)
        layOut(layout, m_components[c], width, height, levels);
}

}  // namespace dvq::kelt4
