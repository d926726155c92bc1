#pragma once

#include <cstdint>

/// The pixel formats of images.
enum COLOR_TYPE {
    COLOR_TYPE_C08 = 0,  ///< CPixelC08
    COLOR_TYPE_M08 = 1,  ///< CPixelM08
    COLOR_TYPE_M16 = 2,  ///< CPixelM16
};

/// How a painted image is turned; degrees are clockwise.
enum ORIENTATION {
    ORIENTATION_NORMAL = 0,
    ORIENTATION_90 = 1,
    ORIENTATION_180 = 2,
    ORIENTATION_270 = 3,
    ORIENTATION_MIRRORED = 4,         ///< Left and right exchanged.
    ORIENTATION_ANTI_TRANSPOSED = 5,  ///< Mirrored at the diagonal from bottom left to top right.
    ORIENTATION_FLIPPED = 6,          ///< Top and bottom exchanged.
    ORIENTATION_TRANSPOSED = 7,       ///< Mirrored at the diagonal from top left to bottom right.
};

/// 8-bit grey.
struct CPixelM08 {
    using Channel = uint8_t;
    static constexpr int kChannels = 1;
    static constexpr COLOR_TYPE kColorType = COLOR_TYPE_M08;
    Channel value;
};

/// 16-bit unsigned grey in host byte order.
struct CPixelM16 {
    using Channel = uint16_t;
    static constexpr int kChannels = 1;
    static constexpr COLOR_TYPE kColorType = COLOR_TYPE_M16;
    Channel value;
};

/// 8-bit colour, in buffer order.
struct CPixelC08 {
    using Channel = uint8_t;
    static constexpr int kChannels = 3;
    static constexpr COLOR_TYPE kColorType = COLOR_TYPE_C08;
    Channel r, g, b;
};

static_assert(sizeof(CPixelM08) == 1 && sizeof(CPixelM16) == 2 && sizeof(CPixelC08) == 3);

/// What averaging adds up for one grey pixel. The sums are whole numbers below 2^53, so that integers, which
/// add up faster, and doubles, which divide faster, hold the same.
struct CPixelDDD {
    uint64_t sum[1];
};

/// What averaging adds up for one colour pixel.
struct CPixelCCC {
    uint64_t sum[3];
};
