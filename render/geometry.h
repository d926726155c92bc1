#pragma once

#include <algorithm>
#include <cstdint>

/// Width and height.
struct CSize {
    int64_t cx = 0;
    int64_t cy = 0;

    bool operator==(const CSize&) const = default;
};

struct CPoint {
    int64_t x = 0;
    int64_t y = 0;

    bool operator==(const CPoint&) const = default;
};

/// A rectangle whose right and bottom edges lie just outside.
struct CRect {
    int64_t left = 0;
    int64_t top = 0;
    int64_t right = 0;
    int64_t bottom = 0;

    CRect() = default;
    CRect(int64_t l, int64_t t, int64_t r, int64_t b) : left(l), top(t), right(r), bottom(b) {}
    CRect(const CPoint& origin, const CSize& size)
        : CRect(origin.x, origin.y, origin.x + size.cx, origin.y + size.cy) {}

    int64_t Width() const { return right - left; }
    int64_t Height() const { return bottom - top; }

    void OffsetRect(int64_t dx, int64_t dy) {
        left += dx;
        right += dx;
        top += dy;
        bottom += dy;
    }

    /// Becomes the overlap of a and b; false when they lie apart. Touching edges overlap, with no width or
    /// height.
    bool IntersectRect(const CRect& a, const CRect& b) {
        *this = CRect(std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
                      std::min(a.bottom, b.bottom));
        return right >= left && bottom >= top;
    }

    /// Becomes the smallest rectangle around a and b.
    void UnionRect(const CRect& a, const CRect& b) {
        *this = CRect(std::min(a.left, b.left), std::min(a.top, b.top), std::max(a.right, b.right),
                      std::max(a.bottom, b.bottom));
    }

    bool operator==(const CRect&) const = default;
};
