#include "vintakd/viewer/streamelements.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "hsutils/StageClock.h"

void* CVintak_CKeltCompressor::allocBlock(size_t size) {
    constexpr size_t kAlignment = 8;
    void* block = nullptr;
    return posix_memalign(&block, kAlignment, size) == 0 ? block : nullptr;
}

size_t streamCut(int columns, int rows, int bitsUsed, size_t length) {
    // Single and double precision are mixed on purpose: readers and other writers compute the same cut.
    constexpr int64_t kSmallest = 65536;
    const int64_t pixels = std::max(kSmallest, int64_t{columns} * rows);
    const float excess = static_cast<float>(pixels) * (1.0f / 65536.0f) - 1.0f;
    const float growth = powf(excess, 0.6f);
    const float bytesPerSample = static_cast<float>(bitsUsed) * 0.125f;
    const auto cut = static_cast<int64_t>((static_cast<double>(growth) + 1.0) * 8192.0 *
                                          static_cast<double>(bytesPerSample));
    return cut <= 0 || static_cast<uint64_t>(cut) > length ? length : static_cast<size_t>(cut);
}

int writeQXIDHeader(const FramePixels& frame, std::FILE* file) {
    if (!file) return 0;
    constexpr uint32_t kVersion = 0x00180001;  // 24 bytes of header, layout 1
    const float values[] = {static_cast<float>(frame.rescaleIntercept),
                            static_cast<float>(frame.rescaleSlope), static_cast<float>(frame.windowWidth),
                            static_cast<float>(frame.windowCenter)};
    std::fwrite("QXID", 4, 1, file);
    std::fwrite(&kVersion, sizeof kVersion, 1, file);
    std::fwrite(values, sizeof values, 1, file);
    return 1;
}

namespace {

/// The stream of a frame; `status` says what compress() does.
std::unique_ptr<CVintak_CKeltCompressor> coded(const FramePixels& frame, int& status) {
    const InStage coding(Stage::code);
    auto compressor = std::make_unique<CVintak_CKeltCompressor>(frame.data, frame.bytesPerPixel,
                                                                frame.bitsUsed, frame.columns, frame.rows);
    status = compressor->compress(0);
    return compressor;
}

}  // namespace

bool writeStreamElements(const FramePixels& frame, const StreamFiles& files, OutputQuota& quota,
                         std::string& cause) {
    constexpr size_t kHeaderBytes = 24;
    const auto& [rest, first, preview] = files;
    if (!rest && !first && !preview) return true;
    const auto fail = [&cause](const char* text) {
        cause = text;
        return false;
    };
    if (!frame.isWhole()) return fail("there are no pixels");
    int status = 0;
    const auto compressor = coded(frame, status);
    const unsigned char* stream = compressor->payload();
    const size_t length = compressor->payloadSize();
    // A stream that was cut at a capacity (4) is a stream all the same.
    constexpr int kComplete = 0, kPrefix = 4;
    if ((status != kComplete && status != kPrefix) || stream == nullptr)
        return fail("the frame cannot be coded");

    const size_t cut = first ? streamCut(frame.columns, frame.rows, frame.bitsUsed, length) : 0;
    quota.take((preview ? kHeaderBytes + std::min(length, kPreviewBytes) : 0) +
               (first ? kHeaderBytes + cut : 0) + (rest ? length - cut : 0));
    bool written = true;
    const auto write = [&](std::FILE* file, size_t from, size_t to) {
        written = std::fwrite(stream + from, 1, to - from, file) == to - from && written;
    };
    if (preview) {
        writeQXIDHeader(frame, preview);
        write(preview, 0, std::min(length, kPreviewBytes));
    }
    if (first) {
        writeQXIDHeader(frame, first);
        write(first, 0, cut);
    }
    if (rest) write(rest, cut, length);
    return written;
}
