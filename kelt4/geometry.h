#pragma once

#include <bit>
#include <cstdint>

/// Sizes that follow from a frame's width and height alone; encoder, decoder and tests share them.
///
/// Level classes: after L levels of the in-place transform the coefficient at (x, y) is of class
/// min(ctz(x), ctz(y), L). Class j < L holds the three detail bands of level j + 1 mixed in raster order,
/// class L the coarsest approximation.
namespace dvq::kelt4 {

inline constexpr int kMaxLevels = 8;
inline constexpr int kMaxClasses = kMaxLevels + 1;
inline constexpr int kMaxComponents = 3;
/// Width and height are 16-bit fields of the payload's header.
inline constexpr int kMaxSide = 65535;

/// Number of decomposition levels of a frame: every row and column of every level keeps at least 16 samples.
inline int levelsFor(int width, int height) {
    const int smaller = width < height ? width : height;
    if (smaller < 16) return 0;
    const int levels = static_cast<int>(std::bit_width(static_cast<unsigned>(smaller))) - 1 - 3;
    return levels < kMaxLevels ? levels : kMaxLevels;
}

/// Samples of a side on the lattice of the given level (every 2^level-th sample, the first included).
inline int latticeSide(int side, int level) {
    return static_cast<int>((static_cast<int64_t>(side) + (int64_t{1} << level) - 1) >> level);
}

/// Number of coefficients of a level class in one component.
inline uint64_t classSize(int width, int height, int levels, int levelClass) {
    const auto lattice = [&](int level) {
        return static_cast<uint64_t>(latticeSide(width, level)) *
               static_cast<uint64_t>(latticeSide(height, level));
    };
    return levelClass < levels ? lattice(levelClass) - lattice(levelClass + 1) : lattice(levels);
}

/// Width in bits of the length field of a chunk of class 0; a chunk of class j has 2j bits less.
inline unsigned lengthFieldBits(int width, int height) {
    const uint64_t samples = static_cast<uint64_t>(width) * static_cast<uint64_t>(height);
    return static_cast<unsigned>(std::bit_width(static_cast<uint64_t>(static_cast<double>(samples) * 1.5)));
}

}  // namespace dvq::kelt4
