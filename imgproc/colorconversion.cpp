#include "imgproc/colorconversion.h"

#include <algorithm>

// The formulas are evaluated in double precision and truncated.

namespace {

struct Rgb {
    double red;
    double green;
    double blue;
};

unsigned char clamped(double value) {
    return static_cast<unsigned char>(std::clamp(value, 0.0, 255.0));
}

Rgb fromYbrFull(int y, int cb, int cr) {
    return {y + 1.402 * (cr - 128), y - 0.344 * (cb - 128) - 0.7141 * (cr - 128), y + 1.772 * (cb - 128)};
}

Rgb fromYbrPartial(int y, int cb, int cr) {
    const double luma = 1.164 * (y - 16);
    return {luma + 1.596 * (cr - 128), luma - 0.392 * (cb - 128) - 0.813 * (cr - 128),
            luma + 2.017 * (cb - 128)};
}

Rgb fromYbrRct(int y, int cb, int cr) {
    const int green = y - ((cb + cr) >> 2);
    return {static_cast<double>(cr + green), static_cast<double>(green), static_cast<double>(cb + green)};
}

Rgb fromYbrIct(int y, int cb, int cr) {
    return {y + 1.402 * cr, y - 0.344 * cb - 0.714 * cr, y + 1.772 * cb};
}

template <typename Conversion>
void convertPixels(unsigned char* pixels, size_t count, size_t stride, Conversion conversion) {
    for (size_t i = 0; i < count; ++i, pixels += stride) {
        const Rgb rgb = conversion(pixels[0], pixels[1], pixels[2]);
        pixels[0] = clamped(rgb.red);
        pixels[1] = clamped(rgb.green);
        pixels[2] = clamped(rgb.blue);
    }
}

/// Expands Y1 Y2 Cb Cr for each pair of pixels to three bytes a pixel, from the end backwards. A last pixel
/// without a partner takes the chroma of the pair before it.
void expand422(unsigned char* pixels, size_t count) {
    if (count < 2) return;
    const size_t pairs = count / 2;
    const unsigned char lastLuma = pixels[2 * (count - 1)];
    for (size_t pair = pairs; pair-- > 0;) {
        const unsigned char* from = pixels + 4 * pair;
        const unsigned char expanded[6] = {from[0], from[2], from[3], from[1], from[2], from[3]};
        std::copy_n(expanded, 6, pixels + 6 * pair);
    }
    if (count % 2 != 0) {
        unsigned char* last = pixels + 3 * (count - 1);
        last[0] = lastLuma;
        last[1] = last[-2];
        last[2] = last[-1];
    }
}

}  // namespace

void convertToRgb(PhotometricKind kind, unsigned char* pixels, size_t bytes, size_t stride) {
    const size_t count = bytes / stride;
    switch (kind) {
        case PhotometricKind::YbrFull422:
            expand422(pixels, bytes / 3);
            [[fallthrough]];
        case PhotometricKind::YbrFull:
            convertPixels(pixels, count, stride, fromYbrFull);
            break;
        case PhotometricKind::YbrPartial422:
            expand422(pixels, bytes / 3);
            convertPixels(pixels, count, stride, fromYbrPartial);
            break;
        case PhotometricKind::YbrRct:
            convertPixels(pixels, count, stride, fromYbrRct);
            break;
        case PhotometricKind::YbrIct:
            convertPixels(pixels, count, stride, fromYbrIct);
            break;
        default:
            break;
    }
}
