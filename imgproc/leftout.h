#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

/// Ranges of a file that a reader is not to see, as if the file were without them. Positions are those of the
/// file. The ranges are added from front to back and do not overlap.
class LeftOut {
public:
    /// Leaves out from `begin` to before `end`.
    void add(uint64_t begin, uint64_t end);

    /// These and one more, which may lie before them, between or behind.
    LeftOut with(uint64_t begin, uint64_t end) const;

    bool empty() const { return m_ranges.empty(); }

    /// Where reading goes on at a position: there, or behind the range that it lies in.
    uint64_t visible(uint64_t position) const;
    /// Where reading from a visible position has to stop: at the next range, or at `end`.
    uint64_t stop(uint64_t position, uint64_t end) const;
    /// Bytes that are left out from a position on.
    uint64_t bytesFrom(uint64_t position) const;
    /// The position `count` visible bytes before `position`; `count` of them are there.
    uint64_t back(uint64_t position, uint64_t count) const;

private:
    struct Range {
        uint64_t begin;
        uint64_t end;
        uint64_t before;  ///< bytes that the ranges before this one leave out
    };

    /// The first range that ends behind `position`.
    std::vector<Range>::const_iterator at(uint64_t position) const;

    std::vector<Range> m_ranges;
};
