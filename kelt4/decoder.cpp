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

/// Coefficients of so many planes are tried in 16-bit elements when samples have 16 bits.
constexpr int kNarrowPlanes = 13;
/// The greatest magnitude of two values whose sum can still be rounded in a 16-bit element.
constexpr int kNarrowLimit = (1 << 14) - 2;

/// Makes the picture of what was read; false when 16-bit elements may not have held what it goes through.
bool reconstruct(DecodedFrame& frame, ChunkReader& reader, const Kernel& kernel, bool narrow) {
    reader.start();
    // Without its finest classes a stream is that of the smaller picture.
    const int levels = reader.levels() - frame.reduce;
    const int components = frame.info.header.components();
    RowBuffers rows;
    rows.prepare(components, frame.width, frame.height, levels, narrow ? 2 : 4, 2 * kBlock * kGroupWords);
    DecodeJob job{frame.info.header.bytesPerPixel(),
                  frame.width,
                  frame.height,
                  levels,
                  reader.planes(),
                  narrow,
                  reader.bits(),
                  {},
                  rows.components(),
                  frame.pixels.data(),
                  0,
                  0};
    for (int c = 0; c < components; ++c)
        job.classes[c] = reader.classes(c) + frame.reduce;
    kernel.decode(job);
    return job.least >= -kNarrowLimit && job.greatest <= kNarrowLimit;
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
    ChunkReader(info.header, payload.subspan(CKeltHeader::kSize)).read(info);
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
    ChunkReader reader(header, payload.subspan(CKeltHeader::kSize), frame.reduce);
    frame.width = latticeSide(header.width(), frame.reduce);
    frame.height = latticeSide(header.height(), frame.reduce);
    frame.pixels.resize(static_cast<size_t>(frame.width) * static_cast<size_t>(frame.height) *
                        static_cast<size_t>(header.bytesPerPixel()));
    bool trusting = reader.readTrusting(info);
    if (!trusting) reader.read(info);
    bool isSmall = reader.planes() <= kNarrowPlanes;
    for (;;) {
        const bool held = reconstruct(frame, reader, kernel, header.bytesPerPixel() != 2 || isSmall);
        if (trusting && !reader.confirm(info)) {
            reader.read(info);
        } else if (!isSmall || held) {
            return frame;
        } else {
            isSmall = false;
        }
        trusting = false;
    }
}

}  // namespace dvq::kelt4
