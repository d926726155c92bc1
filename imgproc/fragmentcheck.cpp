#include "imgproc/fragmentcheck.h"

#include <array>
#include <span>

namespace {

OFCondition damaged(const char* text) {
    return makeOFCondition(OFM_dcmdata, 7, OF_error, text);
}

uint32_t littleEndian(std::span<const uint8_t, 4> bytes) {
    return uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 | uint32_t{bytes[3]} << 24;
}

enum class JpegMarker { FrameHeader, Tem, Alone, Segment, Fill, Invalid };

/// What the search for the frame header makes of the second byte of a marker.
JpegMarker kindOf(uint8_t code) {
    if (code == 0x01) return JpegMarker::Tem;
    if (code == 0xFF) return JpegMarker::Fill;
    if (code <= 0x02) return JpegMarker::Invalid;
    if (code < 0xC0 || (code >= 0xD0 && code <= 0xD9)) return JpegMarker::Alone;
    if (code > 0xCF || code == 0xC4 || code == 0xC8 || code == 0xCC) return JpegMarker::Segment;
    return JpegMarker::FrameHeader;
}

}  // namespace

OFCondition checkRunLengthHeader(DcmPixelItem& fragment, uint64_t available) {
    std::array<uint8_t, 64> header;
    const OFCondition read = fragment.getPartialValue(header.data(), 0, static_cast<Uint32>(header.size()),
                                                      nullptr, EBO_LittleEndian);
    if (read.bad()) return read;
    const auto number = [&header](size_t i) {
        return littleEndian(std::span(header).subspan(4 * i).first<4>());
    };
    const size_t segments = number(0);
    bool sound = segments >= 1 && segments <= 15;
    uint64_t last = header.size() - 1;
    for (size_t i = 1; sound && i <= segments; ++i) {
        sound = number(i) > last && number(i) < available;
        last = number(i);
    }
    return sound ? EC_Normal : damaged("the run length header names segments that are not there");
}

OFCondition checkJpegMarkers(DcmPixelItem& fragment) {
    Uint8* value = nullptr;
    const OFCondition loaded = fragment.getUint8Array(value);
    if (loaded.bad()) return loaded;
    const std::span<const uint8_t> bytes(value, value != nullptr ? fragment.getLength() : 0);
    for (size_t i = 0; i + 4 < bytes.size() && bytes[i] == 0xFF;) {
        switch (kindOf(bytes[i + 1])) {
            case JpegMarker::Tem:
                return damaged("the JPEG stream has a marker (TEM) before its frame header");
            case JpegMarker::Fill:
                ++i;
                break;
            case JpegMarker::Alone:
                i += 2;
                break;
            case JpegMarker::Segment:
                i += 2 + (size_t{bytes[i + 2]} << 8 | bytes[i + 3]);
                break;
            default:
                return EC_Normal;
        }
    }
    return EC_Normal;
}
