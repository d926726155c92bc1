#include "tools/picture/png.h"

#include <png.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/picture/files.h"

namespace picture {
namespace {

constexpr int kGap = 8;
constexpr uint8_t kGround = 24;
constexpr int64_t kMostPixels = int64_t{1} << 28;

int scaledWidth(const Picture& picture, int height) {
    const int64_t width = int64_t{picture.width} * height / picture.height;
    return static_cast<int>(std::clamp<int64_t>(width, 1, kMostPixels));
}

/// Draws a picture, scaled to the height of the sheet, at column `left`.
void place(const Picture& picture, int left, Picture& sheet) {
    const int width = scaledWidth(picture, sheet.height);
    for (int y = 0; y < sheet.height; ++y) {
        const int64_t fromRow = int64_t{y} * picture.height / sheet.height * picture.width;
        uint8_t* to = &sheet.pixels[(size_t(y) * sheet.width + left) * 3];
        for (int x = 0; x < width; ++x, to += 3) {
            const int64_t pixel = fromRow + int64_t{x} * picture.width / width;
            const uint8_t* from = &picture.pixels[static_cast<size_t>(pixel) * picture.channels];
            for (int c = 0; c < 3; ++c)
                to[c] = from[picture.channels == 3 ? c : 0];
        }
    }
}

}  // namespace

void writePng(const std::string& path, const Picture& picture) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) throw PictureError("cannot create " + path + ": " + std::strerror(errno));
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(picture.width);
    image.height = static_cast<png_uint_32>(picture.height);
    image.format = picture.channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    errno = 0;
    const bool written = png_image_write_to_stdio(&image, file, 0, picture.pixels.data(), 0, nullptr) != 0;
    const int cause = errno;
    struct stat status {};
    const bool isPlain = fstat(fileno(file), &status) == 0 && S_ISREG(status.st_mode);
    const bool closed = std::fclose(file) == 0;
    if (written && closed) return;
    std::string reason = image.message;  // "Write Error" where the system knows why
    if (written || cause != 0) reason = std::strerror(written ? errno : cause);
    if (isPlain) (void)std::remove(path.c_str());  // a pipe or a device is not ours to remove
    throw PictureError("cannot write " + path + ": " + reason);
}

Picture sideBySide(const std::vector<Picture>& pictures) {
    Picture sheet;
    for (const Picture& picture : pictures)
        sheet.height = std::max(sheet.height, picture.height);
    int64_t width = kGap * (static_cast<int64_t>(pictures.size()) - 1);
    for (const Picture& picture : pictures)
        width += scaledWidth(picture, sheet.height);
    if (width * sheet.height > kMostPixels)
        throw PictureError("the pictures are too large to stand side by side");

    sheet.width = static_cast<int>(width);
    sheet.channels = 3;
    sheet.pixels.assign(static_cast<size_t>(width) * sheet.height * 3, kGround);
    int left = 0;
    for (const Picture& picture : pictures) {
        place(picture, left, sheet);
        left += scaledWidth(picture, sheet.height) + kGap;
    }
    return sheet;
}

}  // namespace picture
