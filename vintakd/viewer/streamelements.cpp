#include "vintakd/viewer/streamelements.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "hsutils/Utils.h"
#include "imgproc/operationallog.h"
#include "vintakd/viewer/vintakprocess.h"
#include "vintakd/viewer/vintakrawimage.h"

void* CVintak_CKeltCompressor::allocBlock(std::size_t size) {
    constexpr std::size_t alignment = 8;
    void* block = nullptr;
    return posix_memalign(&block, alignment, size) == 0 ? block : nullptr;
}

std::size_t streamCut(int columns, int rows, int bitsUsed, std::size_t length) {
    // Single and double precision are mixed on purpose: readers and other writers compute the same cut.
    constexpr std::int64_t smallest = 65536;
    const std::int64_t pixels = std::max(smallest, std::int64_t{columns} * rows);
    const float excess = static_cast<float>(pixels) * (1.0f / 65536.0f) - 1.0f;
    const float growth = powf(excess, 0.6f);
    const float bytesPerSample = static_cast<float>(bitsUsed) * 0.125f;
    const auto cut = static_cast<std::int64_t>((static_cast<double>(growth) + 1.0) * 8192.0 *
                                               static_cast<double>(bytesPerSample));
    return cut <= 0 || static_cast<std::uint64_t>(cut) > length ? length : static_cast<std::size_t>(cut);
}

bool CVintakRawImage::createAndWriteCompressedStreamElements(std::FILE* f, std::FILE* t, std::FILE* p) {
    constexpr std::size_t headerBytes = 24;
    if (!f && !t && !p) return true;
    const int columns = context().columns;
    const int rows = context().rows;
    const std::uint64_t needed =
        std::uint64_t{context().columns} * context().rows * static_cast<std::uint64_t>(bytesPerSample());
    // The streams' files fail no conversion, so the log is the only place where their loss is told.
    const auto fail = [this](const char* cause) {
        OFLOG_ERROR(operationalLogger(), "No stream files " << printable(viewerProcess()->outputPrefix())
                                                            << "_" << viewerProcess()->frameNumber()
                                                            << ".*.qi4: " << cause);
        return false;
    };
    if (data() == nullptr || size() < needed) return fail("there are no pixels");

    CVintak_CKeltCompressor compressor(data(), bytesPerSample(), bitsUsed(), columns, rows);
    const int status = compressor.compress(0);
    const unsigned char* stream = compressor.payload();
    const std::size_t length = compressor.payloadSize();
    // A stream that was cut at a capacity (4) is a stream all the same.
    constexpr int complete = 0, prefix = 4;
    if ((status != complete && status != prefix) || stream == nullptr)
        return fail("the frame cannot be coded");

    const std::size_t cut = t ? streamCut(columns, rows, bitsUsed(), length) : 0;
    viewerProcess()->quota().take((p ? headerBytes + std::min(length, previewBytes) : 0) +
                                  (t ? headerBytes + cut : 0) + (f ? length - cut : 0));
    bool written = true;
    const auto write = [&](std::FILE* file, std::size_t from, std::size_t to) {
        written = std::fwrite(stream + from, 1, to - from, file) == to - from && written;
    };
    if (p) {
        writeQXIDHeader(p);
        write(p, 0, std::min(length, previewBytes));
    }
    if (t) {
        writeQXIDHeader(t);
        write(t, 0, cut);
    }
    if (f) write(f, cut, length);
    return written;
}
