#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kelt4/geometry.h"

/// Row memory of the streaming transforms: a frame is transformed row by row, all levels at once, so that
/// only a few rows of each level exist at a time.
namespace dvq::kelt4 {

/// Elements readable and writable before the first and after the last element of each half of a row.
inline constexpr int kRowPad = 32;
/// Coefficients of a class are coded in blocks of this many.
inline constexpr int kBlock = 64;
/// Values of a class that an encoder may collect before it codes them.
inline constexpr int kLargestBatch = 64 * kBlock;

/// One level of one component. A row lies deinterleaved: low-pass half first, high-pass half `half` elements
/// later.
struct LevelRows {
    void* rows[5];
    int half;
    /// Size of the level's lattice before it is halved.
    int width;
    int height;
    /// Rows received or delivered.
    int next;
};

/// Values of one class in raster order between the transform and the coder.
struct ClassStage {
    void* values;
    /// Values held, and in the decoder where they begin and the next block to put together.
    size_t count;
    size_t first;
    size_t block;
};

struct ComponentRows {
    LevelRows levels[kMaxLevels];
    ClassStage classes[kMaxClasses];
    /// An interleaved row of the frame's width.
    void* row;
};

/// Owns the row memory of up to three components.
class RowBuffers {
public:
    /// Lays out rows of elements of the given size (2 or 4 bytes) for a frame. Keeps memory that is large
    /// enough.
    void prepare(int components, int width, int height, int levels, size_t elementSize);
    ComponentRows* components() { return m_components; }
    size_t heldBytes() const { return m_memory.capacity(); }

private:
    ComponentRows m_components[kMaxComponents] = {};
    std::vector<unsigned char> m_memory;
};

}  // namespace dvq::kelt4
