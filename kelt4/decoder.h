#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "kelt4/keltheader.h"
#include "kelt4/kernel.h"

/// Decoding of Kelt payloads. Any prefix of a payload decodes to a picture, a whole payload to the exact
/// frame.
///
/// Payloads may come from anywhere: nothing outside them is read, time and memory follow from the frame size
/// that the header gives (beside the pixels a few rows, about 100 bytes for each column and 1 MB at most),
/// and that size is limited. Nothing is thrown but std::bad_alloc.
namespace dvq::kelt4 {

enum class DecodeStatus {
    /// The stream is there to its end mark: the frame is exact.
    kComplete,
    /// The stream ends early: the picture is an approximation.
    kTruncated,
    /// The stream contradicts itself from some point on: the picture shows what came before it.
    kDamaged,
    // No picture in these cases:
    kNotAPayload,
    kUnsupported,
    kTooLarge,
};

/// A sentence for users.
const char* describe(DecodeStatus status);
inline bool hasPicture(DecodeStatus status) {
    return status <= DecodeStatus::kDamaged;
}

struct DecodeOptions {
    /// Greatest width x height x components that is decoded; larger frames are refused before anything is
    /// allocated.
    uint64_t maxSamples = uint64_t{1} << 27;
    /// r: only every 2^r-th sample of both axes is wanted, which takes memory and time for these alone. At
    /// most as many halvings as the stream has levels are made.
    int reduce = 0;
    /// Null for the active kernel.
    const Kernel* kernel = nullptr;
};

/// One chunk record of the stream.
struct ChunkInfo {
    int component;
    int levelClass;
    bool refinement;
    int plane;
    /// The record's length field, which holds only the low bits of a length that is too great for it.
    uint64_t lengthField;
    /// Bits of the chunk that are there. Of a chunk that is cut off or damaged, those that could be decoded.
    uint64_t bits;
    /// Position of the first chunk bit, counted from the start of the stream (payload byte 16).
    uint64_t offset;
};

struct PayloadInfo {
    DecodeStatus status = DecodeStatus::kNotAPayload;
    /// Meaningful unless the status is kNotAPayload.
    CKeltHeader header;
    int topPlane = 0;
    int levels = 0;
    /// In the order of the stream.
    std::vector<ChunkInfo> chunks;
    /// Bits of the stream that were made use of.
    uint64_t bitsRead = 0;
    /// Bits of the stream that are there: 8 for each byte after the header.
    uint64_t bitsPresent = 0;
};

struct DecodedFrame {
    /// Of a reduced picture the status is kComplete as soon as all that it needs has been read.
    PayloadInfo info;
    /// The halvings made, and the size of the picture: ceil(frame's side / 2^reduce).
    int reduce = 0;
    int width = 0;
    int height = 0;
    /// height rows of width pixels without gaps: bytes (1 byte per pixel), 16-bit samples in host order (2)
    /// or RGB interleaved (3). Empty when hasPicture(info.status) is false. Samples of an approximation are
    /// limited to the range of their bytes; unknown low bits of a coefficient stand at the middle of what
    /// they may be.
    std::vector<uint8_t> pixels;
};

/// Reads the header and the chunk records. Chunks are decoded on the way, since only that tells where they
/// end.
PayloadInfo inspect(std::span<const uint8_t> payload, const DecodeOptions& options = {});

DecodedFrame decode(std::span<const uint8_t> payload, const DecodeOptions& options = {});

}  // namespace dvq::kelt4
