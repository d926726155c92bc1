#include "render/paintparameters.h"

#include <utility>

namespace {

/// How source rows run in the destination.
struct Layout {
    bool turned;           ///< Source rows become destination columns.
    bool columnsBackward;  ///< Source columns run against the destination's axis.
    bool rowsBackward;
};

Layout layoutOf(ORIENTATION orientation) {
    switch (orientation) {
        case ORIENTATION_NORMAL:
            return {false, false, false};
        case ORIENTATION_90:
            return {true, false, true};
        case ORIENTATION_180:
            return {false, true, true};
        case ORIENTATION_270:
            return {true, true, false};
        case ORIENTATION_MIRRORED:
            return {false, true, false};
        case ORIENTATION_ANTI_TRANSPOSED:
            return {true, true, true};
        case ORIENTATION_FLIPPED:
            return {false, false, true};
        case ORIENTATION_TRANSPOSED:
            return {true, false, false};
    }
    return {false, false, false};
}

/// One axis of the destination as the source sees it.
struct Axis {
    int64_t first;   ///< First visible position along the zoomed source.
    int64_t count;   ///< Visible positions.
    int64_t origin;  ///< Destination coordinate of the first one.
    int step;        ///< 1, or -1 when the axis runs backward.
};

/// `low` and `high`: the visible range relative to the zoomed image of size `size`, which begins at
///     destination coordinate `offset`.
Axis axisOf(int64_t low, int64_t high, int64_t size, int64_t offset, bool backward) {
    if (backward) return {size - high, high - low, offset + high - 1, -1};
    return {low, high - low, offset + low, 1};
}

}  // namespace

PaintParameters placeImage(CSize srcSize, CSize dstSize, CPoint offset, CSize zoom, CRect clip,
                           ORIENTATION orientation) {
    const Layout layout = layoutOf(orientation);
    PaintParameters p;
    p.source = srcSize;
    p.zoom = layout.turned ? CSize{zoom.cy, zoom.cx} : zoom;
    p.scale = static_cast<double>(zoom.cx + zoom.cy) / static_cast<double>(srcSize.cx + srcSize.cy);

    CRect visible(CPoint(), dstSize);
    visible.OffsetRect(-offset.x, -offset.y);
    clip.OffsetRect(-offset.x, -offset.y);
    if (!visible.IntersectRect(CRect(CPoint(), zoom), CRect(visible)) ||
        !visible.IntersectRect(CRect(visible), clip))
        return p;

    const bool xBackward = layout.turned ? layout.rowsBackward : layout.columnsBackward;
    const bool yBackward = layout.turned ? layout.columnsBackward : layout.rowsBackward;
    Axis columns = axisOf(visible.left, visible.right, zoom.cx, offset.x, xBackward);
    Axis rows = axisOf(visible.top, visible.bottom, zoom.cy, offset.y, yBackward);
    p.start = rows.origin * dstSize.cx + columns.origin;
    p.columnStep = columns.step;
    p.rowStep = rows.step * dstSize.cx;
    if (layout.turned) {
        std::swap(columns, rows);
        std::swap(p.columnStep, p.rowStep);
    }
    p.left = columns.first;
    p.top = rows.first;
    p.columns = static_cast<int>(columns.count);
    p.rows = static_cast<int>(rows.count);
    p.visible = p.columns > 0 && p.rows > 0;
    return p;
}
