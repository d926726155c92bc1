#pragma once

#include <zlib.h>

#include <cstdint>
#include <stdexcept>
#include <string>

/// Bytes of objects as anybody may send them, right or wrong. Explicit VR Little Endian where a name does not
/// say otherwise; a length is that of the value unless it is given.
namespace objectbytes {

inline constexpr uint32_t kOpen = 0xFFFFFFFF;  ///< a length that is not told
inline constexpr int64_t kOwn = -1;            ///< the length of the value

inline std::string two(unsigned value) {
    return {static_cast<char>(value), static_cast<char>(value >> 8)};
}
inline std::string four(uint64_t value) {
    return two(static_cast<unsigned>(value & 0xFFFF)) + two(static_cast<unsigned>(value >> 16 & 0xFFFF));
}
inline std::string tag(unsigned group, unsigned element) {
    return two(group) + two(element);
}

inline std::string implicitElement(unsigned group, unsigned element, const std::string& value,
                                   int64_t length = kOwn) {
    return tag(group, element) + four(length == kOwn ? value.size() : static_cast<uint64_t>(length)) + value;
}
inline std::string element(unsigned group, unsigned element, const std::string& vr, const std::string& value,
                           int64_t length = kOwn) {
    const bool isLong = std::string("OB OD OF OL OV OW SQ SV UC UN UR UT UV").find(vr) != std::string::npos;
    const uint64_t size = length == kOwn ? value.size() : static_cast<uint64_t>(length);
    return tag(group, element) + vr + (isLong ? two(0) + four(size) : two(size & 0xFFFF)) + value;
}
inline std::string number(unsigned group, unsigned element, unsigned value) {
    return objectbytes::element(group, element, "US", two(value));
}

inline std::string item(const std::string& content, int64_t length = kOwn) {
    return implicitElement(0xFFFE, 0xE000, content, length);
}
inline const std::string itemEnd = implicitElement(0xFFFE, 0xE00D, "");
inline const std::string sequenceEnd = implicitElement(0xFFFE, 0xE0DD, "");

/// A sequence (0008,1140) of content that is given with its items.
inline std::string sequence(const std::string& items, int64_t length = kOwn) {
    return element(0x0008, 0x1140, "SQ", items, length);
}
/// Sequences within sequences, all of them closed.
inline std::string nested(int levels) {
    std::string begin, end;
    for (int i = 0; i < levels; ++i) {
        begin += sequence("", kOpen) + item("", kOpen);
        end += itemEnd + sequenceEnd;
    }
    return begin + end;
}

/// Preamble and meta header of an object in the given transfer syntax.
inline std::string metaHeader(std::string syntax) {
    if (syntax.size() % 2 != 0) syntax += '\0';
    const std::string uid = element(0x0002, 0x0010, "UI", syntax);
    return std::string(128, '\0') + "DICM" + element(0x0002, 0x0000, "UL", four(uid.size())) + uid;
}
inline constexpr const char* kExplicitLittle = "1.2.840.10008.1.2.1";
inline constexpr const char* kImplicitLittle = "1.2.840.10008.1.2";
inline constexpr const char* kDeflated = "1.2.840.10008.1.2.1.99";
inline constexpr const char* kRunLength = "1.2.840.10008.1.2.5";
inline constexpr const char* kJpegBaseline = "1.2.840.10008.1.2.4.50";
inline constexpr const char* kJpegLs = "1.2.840.10008.1.2.4.80";
inline constexpr const char* kJpeg2000 = "1.2.840.10008.1.2.4.90";

/// What every image has before its pixel data: grey, 8 bits.
inline std::string grey(unsigned rows, unsigned columns, const std::string& frames = "1 ") {
    return element(0x0008, 0x0060, "CS", "OT") + number(0x0028, 0x0002, 1) +
           element(0x0028, 0x0004, "CS", "MONOCHROME2 ") + element(0x0028, 0x0008, "IS", frames) +
           number(0x0028, 0x0010, rows) + number(0x0028, 0x0011, columns) + number(0x0028, 0x0100, 8) +
           number(0x0028, 0x0101, 8) + number(0x0028, 0x0102, 7) + number(0x0028, 0x0103, 0);
}
/// Encapsulated pixel data with an empty offset table and the given fragments.
inline std::string fragments(const std::string& items) {
    return element(0x7FE0, 0x0010, "OB", item("") + items + sequenceEnd, kOpen);
}

/// Raw deflated bytes of `head` and then `times` times `block`, which is packed only once.
inline std::string deflate(const std::string& head, const std::string& block = "", int times = 0) {
    z_stream stream{};
    if (deflateInit2(&stream, 6, Z_DEFLATED, -MAX_WBITS, 9, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::runtime_error("deflate");
    const auto pack = [&stream](const std::string& bytes, int flush) {
        std::string packed(deflateBound(&stream, bytes.size()) + 64, '\0');
        stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
        stream.avail_in = static_cast<uInt>(bytes.size());
        stream.next_out = reinterpret_cast<Bytef*>(packed.data());
        stream.avail_out = static_cast<uInt>(packed.size());
        ::deflate(&stream, flush);
        packed.resize(packed.size() - stream.avail_out);
        return packed;
    };
    std::string result = pack(head, Z_FULL_FLUSH);
    const std::string packedBlock = pack(block, Z_FULL_FLUSH);
    for (int i = 0; i < times; ++i)
        result += packedBlock;
    result += pack("", Z_FINISH);
    deflateEnd(&stream);
    return result;
}

}  // namespace objectbytes
