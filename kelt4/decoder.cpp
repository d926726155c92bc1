#include "kelt4/decoder.h"

#include "kelt4/chunkreader.h"

namespace dvq::kelt4 {

namespace {

/// Takes the header and says whether the frame can be decoded.
DecodeStatus checkHeader(std::span<const uint8_t> payload, const DecodeOptions& options,
                         CKeltHeader& header) {
    if (payload.size() < CKeltHeader::kSize) return DecodeStatus::kNotAPayload;
    header = CKeltHeader(payload.data());
    if (!header.hasMagic()) return DecodeStatus::kNotAPayload;
    if (header.bytesPerPixel() < 1 || header.bytesPerPixel() > 3) return DecodeStatus::kUnsupported;
    const uint64_t samples = static_cast<uint64_t>(header.width()) * static_cast<uint64_t>(header.height()) *
                             static_cast<uint64_t>(header.components());
    return samples > options.maxSamples ? DecodeStatus::kTooLarge : DecodeStatus::kComplete;
}

const Kernel& kernelOf(const DecodeOptions& options) {
    return options.kernel != nullptr ? *options.kernel : activeKernel();
}

}  // namespace

const char* describe(DecodeStatus status) {
    switch (status) {
        case DecodeStatus::kComplete:
            return "the stream is complete";
        case DecodeStatus::kTruncated:
            return "the stream ends early";
        case DecodeStatus::kDamaged:
            return "the stream is damaged";
        case DecodeStatus::kNotAPayload:
            return "this is not a Kelt payload";
        case DecodeStatus::kUnsupported:
            return "the pixel format is not supported";
        case DecodeStatus::kTooLarge:
            return "the frame is larger than the limit";
    }
    return "unknown status";
}

PayloadInfo inspect(std::span<const uint8_t> payload, const DecodeOptions& options) {
    PayloadInfo info;
    info.status = checkHeader(payload, options, info.header);
    if (!hasPicture(info.status)) return info;
    ChunkReader(kernelOf(options), info.header, payload.subspan(CKeltHeader::kSize)).read(info);
    return info;
}

DecodedFrame decode(std::span<const uint8_t> payload, const DecodeOptions& options) {
    DecodedFrame frame;
    PayloadInfo& info = frame.info;
    info.status = checkHeader(payload, options, info.header);
    if (!hasPicture(info.status)) return frame;
    const Kernel& kernel = kernelOf(options);
    ChunkReader reader(kernel, info.header, payload.subspan(CKeltHeader::kSize));
    reader.read(info);
    reader.fillMiddles();

    const int bytesPerPixel = info.header.bytesPerPixel();
    const int width = info.header.width();
    const int height = info.header.height();
    frame.pixels.resize(static_cast<size_t>(width) * static_cast<size_t>(height) *
                        static_cast<size_t>(bytesPerPixel));
    RowBuffers rows;
    rows.prepare(info.header.components(), width, height, reader.levels(), bytesPerPixel == 2 ? 4 : 2);
    kernel.reconstruct({bytesPerPixel, width, height, reader.levels(), reader.planes(), reader.classes(),
                        rows.components(), frame.pixels.data()});
    return frame;
}

}  // namespace dvq::kelt4
