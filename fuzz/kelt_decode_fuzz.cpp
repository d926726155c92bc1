#include <cstdlib>
#include <cstring>

#include "kelt4/decoder.h"
#include "kelt4/geometry.h"
#include "kelt4/keltcompressor.h"

/// The first byte of the input chooses: hostile payloads go to every kernel's decoder, which must agree;
/// frames made of the input must survive the way there and back.
namespace {

using namespace dvq::kelt4;

void require(bool holds) {
    if (!holds) std::abort();
}

DecodedFrame decodeEverywhere(std::span<const uint8_t> payload) {
    DecodeOptions options;
    options.maxSamples = 1 << 18;
    DecodedFrame first;
    bool isFirst = true;
    for (const Kernel& kernel : availableKernels()) {
        options.kernel = &kernel;
        DecodedFrame frame = decode(payload, options);
        const CKeltHeader& header = frame.info.header;
        const auto size = static_cast<size_t>(header.width()) * static_cast<size_t>(header.height()) *
                          static_cast<size_t>(header.bytesPerPixel());
        require(frame.pixels.size() == (hasPicture(frame.info.status) ? size : 0));
        require(frame.info.bitsRead <= frame.info.bitsPresent);
        require(isFirst || (frame.pixels == first.pixels && frame.info.status == first.info.status));
        first = std::move(frame);
        isFirst = false;
    }
    options.reduce = 2;
    const DecodedFrame reduced = decode(payload, options);
    require(hasPicture(reduced.info.status) == hasPicture(first.info.status));
    require(reduced.pixels.size() <= first.pixels.size());
    require(reduced.info.bitsRead <= reduced.info.bitsPresent);
    return first;
}

/// A payload whose header and stream start fit, so that the input is spent on chunks.
void fuzzChunks(const uint8_t* data, size_t size) {
    if (size < 4) return;
    const int bytesPerPixel = 1 + data[0] % 3;
    const int width = 1 + data[1] % 80;
    const int height = 1 + data[2] % 80;
    const CKeltHeader header(bytesPerPixel, 8, width, height);
    std::vector<uint8_t> payload(header.data(), header.data() + CKeltHeader::kSize);
    payload.push_back(data[3] % 16);
    payload.push_back(static_cast<uint8_t>(levelsFor(width, height)));
    payload.insert(payload.end(), data + 4, data + size);
    decodeEverywhere(payload);
}

void fuzzRoundTrip(const uint8_t* data, size_t size) {
    if (size < 4) return;
    const int bytesPerPixel = 1 + data[0] % 3;
    const int width = 1 + data[1] % 80;
    std::vector<uint8_t> pixels(data + 2, data + size);
    const int height = static_cast<int>(pixels.size() / static_cast<size_t>(width * bytesPerPixel));
    pixels.resize(static_cast<size_t>(width) * static_cast<size_t>(height) *
                  static_cast<size_t>(bytesPerPixel));
    if (height > 4096) return;
    CKeltCompressor reference(pixels.data(), bytesPerPixel, 8, width, height, findKernel("reference"));
    require(reference.compress(0) == 0);
    for (const Kernel& kernel : availableKernels()) {
        CKeltCompressor compressor(pixels.data(), bytesPerPixel, 8, width, height, kernel);
        require(compressor.compress(0) == 0 && compressor.payloadSize() == reference.payloadSize());
        require(std::memcmp(compressor.payload(), reference.payload(), reference.payloadSize()) == 0);
    }
    const DecodedFrame decoded = decodeEverywhere({reference.payload(), reference.payloadSize()});
    require(decoded.info.status == DecodeStatus::kComplete && decoded.pixels == pixels);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    switch (data[0] % 3) {
        case 0:
            decodeEverywhere({data + 1, size - 1});
            break;
        case 1:
            fuzzChunks(data + 1, size - 1);
            break;
        default:
            fuzzRoundTrip(data + 1, size - 1);
            break;
    }
    return 0;
}
