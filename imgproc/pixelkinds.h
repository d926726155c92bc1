#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

/// Photometric Interpretation (0028,0004) as a number.
enum class PhotometricKind : int32_t {
    Rgb = 0,
    Monochrome = 1,
    PaletteColor = 2,
    YbrFull = 6,
    YbrFull422 = 7,
    YbrPartial422 = 8,
    YbrRct = 9,
    YbrIct = 10,
};

/// The kind that a value of (0028,0004) names, whatever follows "MONOCHROME"; nothing for an unknown one.
std::optional<PhotometricKind> photometricKindOf(std::string_view value);

/// How the samples of a frame are to be stored.
enum class PixelKind : int32_t {
    ColorInterleaved = 0,
    ColorPlanar = 1,
    Mono8 = 2,
    Mono12 = 3,
    Mono16 = 4,
    Reference = 5,  ///< the object refers to pixel data elsewhere
};

/// How monochrome samples are kept whose bit `bits` is the highest, counted from 0.
PixelKind monochromeKind(unsigned int bits);
