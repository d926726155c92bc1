// A frame's thumbnail: rendered, and compressed within its budget.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "keltlegacy/keltcompress.h"
#include "render/dicomimagetemplate.h"
#include "vintakd/viewer/thumbnailbudget.h"
#include "vintakd/viewer/vintakprocess.h"
#include "vintakd/viewer/vintakrawimage.h"

namespace {

constexpr int thumbnailSide = 128;

/// An image of the class for pixels of so many bytes; null for others.
std::unique_ptr<CDicomImage> imageFor(int bytesPerPixel) {
    switch (bytesPerPixel) {
        case 1:
            return std::make_unique<CDicomImageTemplate<CPixelM08, CPixelDDD>>();
        case 2:
            return std::make_unique<CDicomImageTemplate<CPixelM16, CPixelDDD>>();
        case 3:
            return std::make_unique<CDicomImageTemplate<CPixelC08, CPixelCCC>>();
        default:
            return nullptr;
    }
}

/// The thumbnail of a frame; null when there is none.
std::unique_ptr<CDicomImage> rendered(char* pixels, int bytesPerPixel, int columns, int rows) {
    const std::unique_ptr<CDicomImage> frame = imageFor(bytesPerPixel);
    if (!frame || !frame->Create(columns, rows, pixels)) return nullptr;
    CDicomImage* thumbnail = nullptr;
    int width = thumbnailSide, height = thumbnailSide;
    const bool done = frame->ResampleImage(&thumbnail, width, height) != 0;
    std::unique_ptr<CDicomImage> owner(thumbnail);
    return done ? std::move(owner) : nullptr;
}

std::vector<unsigned char> compressed(const CDicomImage& thumbnail, int bitsUsed, int bytesPerPixel,
                                      std::uint64_t budget) {
    // The coder writes its header even when the budget is smaller.
    constexpr std::uint64_t headerBytes = 10;
    std::vector<unsigned char> payload(std::max(budget, headerBytes));
    payload.resize(keltcompress(thumbnail.pixels(), bitsUsed, bytesPerPixel,
                                static_cast<int>(thumbnail.size().cx), static_cast<int>(thumbnail.size().cy),
                                payload.data(), budget));
    return payload;
}

}  // namespace

bool CVintakRawImage::createAndWriteThumbnail(std::FILE* thumbRaw, std::FILE* thumbCw1) {
    const auto fail = [this](const std::string& cause) {
        process()->reportFailure("The thumbnail of frame " + std::to_string(viewerProcess()->frameNumber()) +
                                 " cannot be " + cause);
        return false;
    };
    // A short write is not reported here: whoever closes the file knows its path and does.
    const auto write = [](std::FILE* file, const unsigned char* bytes, std::size_t count) {
        return std::fwrite(bytes, 1, count, file) == count;
    };
    const std::uint64_t frameBytes =
        std::uint64_t{context().columns} * context().rows * static_cast<std::uint64_t>(bytesPerSample());
    if (data() == nullptr || size() < frameBytes) return fail("rendered: there are no pixels");

    const std::unique_ptr<CDicomImage> thumbnail =
        rendered(data(), bytesPerSample(), context().columns, context().rows);
    if (!thumbnail) return fail("rendered");
    if (thumbRaw) viewerProcess()->quota().take(thumbnail->bufferSize());
    if (thumbRaw && !write(thumbRaw, thumbnail->pixels(), thumbnail->bufferSize())) return false;

    const ThumbnailBudget budget = ThumbnailBudget::read(std::getenv("CONF"), context().modality);
    const std::vector<unsigned char> payload = compressed(*thumbnail, bitsUsed(), bytesPerSample(),
                                                          budget.bytes(frameBytes, thumbnail->bufferSize()));
    viewerProcess()->quota().take(payload.size());
    return write(thumbCw1, payload.data(), payload.size());
}
