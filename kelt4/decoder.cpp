#include "kelt4/decoder.h"

#include <algorithm>

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
        case DecodeStatus::kNoMemory:
            return "there is no memory for the frame";
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
    const CKeltHeader& header = info.header;
    frame.reduce = std::clamp(options.reduce, 0, levelsFor(header.width(), header.height()));
    ChunkReader reader(kernel, header, payload.subspan(CKeltHeader::kSize), frame.reduce);
    reader.read(info);
    if (!hasPicture(info.status)) return frame;
    reader.fillMiddles();

    const int bytesPerPixel = header.bytesPerPixel();
    frame.width = latticeSide(header.width(), frame.reduce);
    frame.height = latticeSide(header.height(), frame.reduce);
    frame.pixels.resize(static_cast<size_t>(frame.width) * static_cast<size_t>(frame.height) *
                        static_cast<size_t>(bytesPerPixel));
    // Without its finest classes a stream is that of the smaller picture.
    const int levels = reader.levels() - frame.reduce;
    RowBuffers rows;
    rows.prepare(header.components(), frame.width, frame.height, levels, bytesPerPixel == 2 ? 4 : 2);
    DecodeJob job{bytesPerPixel,   frame.width, frame.height,      levels,
                  reader.planes(), {},          rows.components(), frame.pixels.data()};
    for (int c = 0; c < header.components(); ++c)
        job.classes[c] = reader.classes(c) + frame.reduce;
    kernel.reconstruct(job);
    return frame;
}

}  // namespace dvq::kelt4
