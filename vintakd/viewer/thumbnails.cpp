#include "vintakd/viewer/thumbnails.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "hsutils/StageClock.h"
#include "keltlegacy/keltcompress.h"
#include "render/dicomimagetemplate.h"
#include "vintakd/viewer/thumbnailbudget.h"

namespace {

constexpr int kThumbnailSide = 128;

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
std::unique_ptr<CDicomImage> rendered(const FramePixels& pixels) {
    const InStage coding(Stage::code);
    const std::unique_ptr<CDicomImage> frame = imageFor(pixels.bytesPerPixel);
    // The image class takes its pixels for its own to write on; resampling only reads them.
    if (!frame || !frame->Create(pixels.columns, pixels.rows, const_cast<char*>(pixels.data))) return nullptr;
    CDicomImage* thumbnail = nullptr;
    int width = kThumbnailSide, height = kThumbnailSide;
    const bool done = frame->ResampleImage(&thumbnail, width, height) != 0;
    std::unique_ptr<CDicomImage> owner(thumbnail);
    return done ? std::move(owner) : nullptr;
}

std::vector<unsigned char> compress(const CDicomImage& thumbnail, const FramePixels& frame, uint64_t budget) {
    const InStage coding(Stage::code);
    // The coder writes its header even when the budget is smaller.
    constexpr uint64_t kHeaderBytes = 10;
    std::vector<unsigned char> payload(std::max(budget, kHeaderBytes));
    payload.resize(keltcompress(thumbnail.pixels(), frame.bitsUsed, frame.bytesPerPixel,
                                static_cast<int>(thumbnail.size().cx), static_cast<int>(thumbnail.size().cy),
                                payload.data(), budget));
    return payload;
}

}  // namespace

bool writeThumbnail(const FramePixels& frame, const std::string& modality, std::FILE* pixels,
                    std::FILE* compressed, OutputQuota& quota, std::string& cause) {
    const auto fail = [&cause](const char* text) {
        cause = text;
        return false;
    };
    // A short write is not reported here: whoever closes the file knows its path and does.
    const auto write = [](std::FILE* file, const unsigned char* bytes, size_t count) {
        return std::fwrite(bytes, 1, count, file) == count;
    };
    if (!frame.isWhole()) return fail("rendered: there are no pixels");
    const std::unique_ptr<CDicomImage> thumbnail = rendered(frame);
    if (!thumbnail) return fail("rendered");
    if (pixels) quota.take(thumbnail->bufferSize());
    if (pixels && !write(pixels, thumbnail->pixels(), thumbnail->bufferSize())) return false;

    const ThumbnailBudget budget = ThumbnailBudget::read(std::getenv("CONF"), modality);
    const std::vector<unsigned char> payload =
        compress(*thumbnail, frame, budget.bytes(frame.bytesNeeded(), thumbnail->bufferSize()));
    quota.take(payload.size());
    return write(compressed, payload.data(), payload.size());
}
