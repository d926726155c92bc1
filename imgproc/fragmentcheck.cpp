#include "imgproc/fragmentcheck.h"

#include <algorithm>
#include <array>

#include "imgproc/byteorder.h"
#include "imgproc/objectlimits.h"

namespace {

using Bytes = std::span<const uint8_t>;

enum class JpegMarker { FrameHeader, Tem, Alone, Segment, Fill, Invalid };

/// What the search for the frame header makes of the second byte of a marker.
JpegMarker kindOf(uint8_t code, JpegFamily family) {
    if (code == 0x01) return JpegMarker::Tem;
    if (code == 0xFF) return JpegMarker::Fill;
    if (code <= 0x02) return JpegMarker::Invalid;
    if (code < 0xC0 || (code >= 0xD0 && code <= 0xD9)) return JpegMarker::Alone;
    if (family == JpegFamily::JpegLs) return code == 0xF7 ? JpegMarker::FrameHeader : JpegMarker::Segment;
    if (code > 0xCF || code == 0xC4 || code == 0xC8 || code == 0xCC) return JpegMarker::Segment;
    return JpegMarker::FrameHeader;
}

std::string sizeText(uint32_t columns, uint32_t rows) {
    return std::to_string(columns) + " x " + std::to_string(rows) + " pixels";
}

/// `segment` is the frame header from its length field on.
OFCondition checkFrameHeader(Bytes segment, const FrameShape& shape, unsigned& precision) {
    if (segment.size() < 8) return frameError("the JPEG stream has a frame header that is too short");
    const uint32_t components = segment[7];
    const uint32_t height = twoBytes(segment.subspan(3), true), width = twoBytes(segment.subspan(5), true);
    if (width != shape.columns || height != shape.rows)
        return frameError("the JPEG stream holds " + sizeText(width, height) + ", the object says " +
                          sizeText(shape.columns, shape.rows));
    if (components != shape.samples)
        return frameError("the JPEG stream has " + std::to_string(components) +
                          " components, the object says " + std::to_string(shape.samples));
    precision = segment[2];
    if (precision <= shape.allocated) return EC_Normal;
    return frameError("the JPEG stream has " + std::to_string(precision) +
                      " bits a sample, the object allocates " + std::to_string(shape.allocated));
}

/// How many bytes the runs of a segment unpack to, as the toolkit's decoder counts them.
uint64_t unpackedBytes(Bytes segment) {
    uint64_t unpacked = 0;
    for (size_t at = 0; at < segment.size();) {
        const uint32_t control = segment[at++];
        const size_t left = segment.size() - at;
        if (control < 128) {
            const size_t literal = std::min<size_t>(control + 1, left);
            unpacked += literal;
            at += literal;
        } else if (left != 0) {
            unpacked += 257 - control;
            ++at;
        }
    }
    return unpacked;
}

/// Whether the stream ends with an end marker, or with zeros or fill bytes behind it.
bool endsWithMarker(Bytes stream) {
    while (!stream.empty() && (stream.back() == 0 || stream.back() == 0xFF))
        stream = stream.first(stream.size() - 1);
    return stream.size() >= 2 && twoBytes(stream.last(2), true) == 0xFFD9;
}

/// Whether nothing but padding stands behind an end marker. The toolkit's own encoder makes the length even
/// with whatever byte it finds.
bool isClosed(Bytes stream) {
    return endsWithMarker(stream) || (!stream.empty() && endsWithMarker(stream.first(stream.size() - 1)));
}

/// Whether a stream has more scans than are taken. A decoder goes over the whole frame for each of them,
/// however few bytes it has. Within a scan 0xFF is never followed by this byte.
bool hasTooManyScans(Bytes stream) {
    constexpr std::array<uint8_t, 2> kStartOfScan{0xFF, 0xDA};
    unsigned scans = 0;
    for (auto at = stream.begin();; at += kStartOfScan.size()) {
        at = std::search(at, stream.end(), kStartOfScan.begin(), kStartOfScan.end());
        if (at == stream.end()) return false;
        if (++scans > objectlimits::kJpegScans) return true;
    }
}

}  // namespace

OFCondition frameError(const std::string& text) {
    return makeOFCondition(OFM_dcmdata, 7, OF_error, text.c_str());
}

OFCondition checkDecodedBits(const FrameShape& shape) {
    if (shape.allocated == 8 || shape.allocated == 16) return EC_Normal;
    return frameError("Bits Allocated is " + std::to_string(shape.allocated) +
                      ", only 8 and 16 can be coded");
}

OFCondition checkRunLengths(Bytes frame, const FrameShape& shape) {
    constexpr size_t kHeaderSize = 64;
    if (frame.size() < kHeaderSize)
        return frameError("the fragment of " + std::to_string(frame.size()) +
                          " bytes is too short for a run length header");
    const auto number = [&](size_t i) { return fourBytes(frame.subspan(4 * i), false); };
    const size_t segments = number(0), needed = size_t{shape.samples} * (shape.allocated / 8);
    if (segments < 1 || segments > 15)
        return frameError("the run length header has " + std::to_string(segments) + " segments");
    for (size_t i = 1; i <= segments; ++i) {
        const uint64_t last = i == 1 ? kHeaderSize - 1 : number(i - 1);
        if (number(i) <= last || number(i) >= frame.size())
            return frameError("the run length header names segments that are not there");
    }
    if (segments != needed)
        return frameError("the run length header has " + std::to_string(segments) +
                          " segments, the object's frame needs " + std::to_string(needed));
    for (size_t i = 1; i <= segments; ++i) {
        const size_t end = i == segments ? frame.size() : number(i + 1);
        const uint64_t bytes = unpackedBytes(frame.subspan(number(i), end - number(i)));
        if (bytes < shape.pixels() || bytes - shape.pixels() >= std::min(shape.rows, shape.columns))
            return frameError("run length segment " + std::to_string(i) + " unpacks to " +
                              std::to_string(bytes) + " bytes, the object says " +
                              sizeText(shape.columns, shape.rows));
    }
    return EC_Normal;
}

OFCondition checkJpegMarkers(Bytes stream, JpegFamily family, const FrameShape& shape, unsigned& precision) {
    if (stream.size() < 4 || twoBytes(stream, true) != 0xFFD8)
        return frameError("the frame does not begin with the start of a JPEG stream");
    if (family == JpegFamily::JpegLs && !isClosed(stream)) return frameError("the JPEG-LS stream has no end");
    for (size_t i = 2; i + 4 <= stream.size() && stream[i] == 0xFF;) {
        const JpegMarker kind = kindOf(stream[i + 1], family);
        if (kind == JpegMarker::Tem)
            return frameError("the JPEG stream has a marker (TEM) before its frame header");
        if (kind == JpegMarker::Invalid) break;
        if (kind == JpegMarker::Fill || kind == JpegMarker::Alone) {
            i += kind == JpegMarker::Fill ? 1 : 2;
            continue;
        }
        const size_t length = twoBytes(stream.subspan(i + 2), true);
        if (length < 2 || length > stream.size() - i - 2)
            return frameError("the JPEG stream has a segment of " + std::to_string(length) + " bytes, " +
                              std::to_string(stream.size() - i - 2) + " are left in the fragment");
        if (kind == JpegMarker::FrameHeader) {
            if (hasTooManyScans(stream.subspan(i)))
                return frameError("the JPEG stream has more than " +
                                  std::to_string(objectlimits::kJpegScans) + " scans");
            return checkFrameHeader(stream.subspan(i + 2, length), shape, precision);
        }
        i += 2 + length;
    }
    return frameError("the JPEG stream has no frame header");
}
