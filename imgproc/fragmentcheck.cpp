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

/// `segment` is the frame header from its length field on.
OFCondition checkFrameHeader(Bytes segment, uint64_t frameBytes) {
    if (segment.size() < 8) return frameError("the JPEG stream has a frame header that is too short");
    const uint32_t precision = segment[2], components = segment[7];
    const uint32_t height = twoBytes(segment.subspan(3), true), width = twoBytes(segment.subspan(5), true);
    const uint64_t needed = uint64_t{width} * height * components * (precision > 8 ? 2 : 1);
    if (needed <= frameBytes) return EC_Normal;
    return frameError("the JPEG stream announces " + std::to_string(width) + " x " + std::to_string(height) +
                      " pixels, " + std::to_string(components) + " components of " +
                      std::to_string(precision) + " bits: more than the " + std::to_string(frameBytes) +
                      " bytes of the object's frame");
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
    constexpr std::array<uint8_t, 2> startOfScan{0xFF, 0xDA};
    unsigned scans = 0;
    for (auto at = stream.begin();; at += startOfScan.size()) {
        at = std::search(at, stream.end(), startOfScan.begin(), startOfScan.end());
        if (at == stream.end()) return false;
        if (++scans > objectlimits::jpegScans) return true;
    }
}

}  // namespace

OFCondition frameError(const std::string& text) {
    return makeOFCondition(OFM_dcmdata, 7, OF_error, text.c_str());
}

OFCondition checkRunLengthHeader(DcmPixelItem& fragment) {
    std::array<uint8_t, 64> header;
    if (fragment.getLength() < header.size())
        return frameError("the fragment of " + std::to_string(fragment.getLength()) +
                          " bytes is too short for a run length header");
    const OFCondition read = fragment.getPartialValue(header.data(), 0, static_cast<Uint32>(header.size()),
                                                      nullptr, EBO_LittleEndian);
    if (read.bad()) return read;
    const auto number = [&header](size_t i) { return fourBytes(std::span(header).subspan(4 * i), false); };
    const size_t segments = number(0);
    bool sound = segments >= 1 && segments <= 15;
    uint64_t last = header.size() - 1;
    for (size_t i = 1; sound && i <= segments; ++i) {
        sound = number(i) > last && number(i) < fragment.getLength();
        last = number(i);
    }
    return sound ? EC_Normal : frameError("the run length header names segments that are not there");
}

OFCondition checkJpegMarkers(Bytes stream, JpegFamily family, uint64_t frameBytes) {
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
                return frameError("the JPEG stream has more than " + std::to_string(objectlimits::jpegScans) +
                                  " scans");
            return checkFrameHeader(stream.subspan(i + 2, length), frameBytes);
        }
        i += 2 + length;
    }
    return frameError("the JPEG stream has no frame header");
}
