#include "imgproc/pixelkinds.h"

#include <utility>

std::optional<PhotometricKind> photometricKindOf(std::string_view value) {
    if (value.starts_with("MONOCHROME")) return PhotometricKind::Monochrome;
    static constexpr std::pair<std::string_view, PhotometricKind> kKinds[] = {
        {"PALETTE COLOR", PhotometricKind::PaletteColor},
        {"RGB", PhotometricKind::Rgb},
        {"YBR_FULL", PhotometricKind::YbrFull},
        {"YBR_FULL_422", PhotometricKind::YbrFull422},
        {"YBR_PARTIAL_422", PhotometricKind::YbrPartial422},
        {"YBR_ICT", PhotometricKind::YbrIct},
        {"YBR_RCT", PhotometricKind::YbrRct},
    };
    for (const auto& [name, kind] : kKinds)
        if (value == name) return kind;
    return {};
}

PixelKind monochromeKind(unsigned int bits) {
    if (bits <= 7) return PixelKind::Mono8;
    return bits <= 11 ? PixelKind::Mono12 : PixelKind::Mono16;
}
