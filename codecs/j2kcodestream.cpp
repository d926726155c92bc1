#include "codecs/j2kcodestream.h"

#include <algorithm>
#include <array>
#include <bit>
#include <optional>

namespace {

using Bytes = std::span<const uint8_t>;

constexpr uint16_t kMarkerSOC = 0xFF4F;
constexpr uint16_t kMarkerCAP = 0xFF50;
constexpr uint16_t kMarkerSIZ = 0xFF51;
constexpr uint16_t kMarkerCOD = 0xFF52;
constexpr uint16_t kMarkerCOC = 0xFF53;
constexpr uint16_t kMarkerSOT = 0xFF90;
constexpr uint16_t kMarkerSOD = 0xFF93;
constexpr uint16_t kMarkerEOC = 0xFFD9;
constexpr size_t kSizFixedLength = 38;  // marker segment length of SIZ without its components
constexpr size_t kSotLength = 12;       // SOT with its marker

// A decoder keeps some kilobytes a tile and some hundred bytes a precinct; no real encoder comes near these
// counts, a hostile header of a few bytes could otherwise ask for gigabytes.
constexpr uint64_t kPixelsPerTileAtLeast = 256;
constexpr uint64_t kTilesAlwaysAllowed = 1024;
constexpr uint64_t kPrecinctsAllowed = 1U << 20;
// A decoder looks at each packet, whether or not there are bytes for it: some ten million in a second.
constexpr uint64_t kPacketsAllowed = 1U << 24;

uint16_t word(Bytes bytes, size_t at) {
    return static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

uint32_t longWord(Bytes bytes, size_t at) {
    return static_cast<uint32_t>(word(bytes, at)) << 16 | word(bytes, at + 2);
}

uint64_t divideUp(uint64_t value, uint64_t by) {
    return (value + by - 1) / by;
}

/// One marker segment: its marker and the bytes after its length field.
struct Segment {
    uint16_t marker = 0;
    Bytes body;
    size_t next = 0;  ///< offset of the marker that follows
};

std::optional<Segment> segmentAt(Bytes stream, size_t at) {
    if (at + 4 > stream.size()) return std::nullopt;
    const uint16_t marker = word(stream, at);
    const size_t length = word(stream, at + 2);
    if ((marker >> 8) != 0xFF || length < 2 || length > stream.size() - at - 2) return std::nullopt;
    return Segment{marker, stream.subspan(at + 4, length - 2), at + 2 + length};
}

OFCondition readSize(Bytes body, J2kHeader& header) {
    if (body.size() < kSizFixedLength - 2) return j2kError("the image size segment is too short");
    constexpr uint16_t kExtendedCapabilities = 0x4000;
    header.highThroughput.announced = (word(body, 0) & kExtendedCapabilities) != 0;
    const uint32_t right = longWord(body, 2), bottom = longWord(body, 6);
    const uint32_t left = longWord(body, 10), top = longWord(body, 14);
    const uint32_t tileWidth = longWord(body, 18), tileHeight = longWord(body, 22);
    const uint32_t tileLeft = longWord(body, 26), tileTop = longWord(body, 30);
    const size_t count = word(body, 34);
    if (count == 0 || body.size() != kSizFixedLength - 2 + 3 * count)
        return j2kError("the image size segment does not hold its " + std::to_string(count) + " components");
    if (right <= left || bottom <= top) return j2kError("the image area is empty");
    if (tileWidth == 0 || tileHeight == 0 || tileLeft > left || tileTop > top ||
        uint64_t{tileLeft} + tileWidth <= left || uint64_t{tileTop} + tileHeight <= top)
        return j2kError("the tile grid does not cover the image area");
    header.width = right - left;
    header.height = bottom - top;
    for (size_t i = 0; i < count; ++i) {
        const uint8_t* component = &body[36 + 3 * i];
        if (component[1] == 0 || component[2] == 0) return j2kError("a component has no samples");
        header.components.push_back(
            {(component[0] & 0x7FU) + 1, (component[0] & 0x80) != 0, component[1], component[2]});
    }
    const uint64_t tiles = divideUp(right - tileLeft, tileWidth) * divideUp(bottom - tileTop, tileHeight);
    const uint64_t pixels = uint64_t{header.width} * header.height;
    if (tiles > 65535 || tiles > std::max(kTilesAlwaysAllowed, pixels / kPixelsPerTileAtLeast))
        return j2kError("an image of " + std::to_string(header.width) + " x " +
                        std::to_string(header.height) + " pixels in " + std::to_string(tiles) + " tiles");
    header.tiles = static_cast<uint32_t>(tiles);
    return EC_Normal;
}

/// The extended capabilities: a word (Ccap) for each part of the standard that a stream makes use of, the
/// parts named by the bits of Pcap from the top. HT is in 15444-15.
OFCondition readCapabilities(Bytes body, J2kHeader& header) {
    constexpr unsigned kPart = 15;
    constexpr uint16_t kIrreversible = 1 << 5, kMixed = 3 << 14;
    if (!header.highThroughput.announced)
        return j2kError("a capabilities segment that the image size segment does not announce");
    if (header.highThroughput.declared) return j2kError("a second capabilities segment");
    if (body.size() < 4) return j2kError("the capabilities segment is too short");
    const uint32_t parts = longWord(body, 0);
    if (body.size() != 4 + 2 * static_cast<size_t>(std::popcount(parts)))
        return j2kError("the capabilities segment does not hold a word for each of its " +
                        std::to_string(std::popcount(parts)) + " parts");
    if ((parts >> (32 - kPart) & 1) == 0) return EC_Normal;
    const auto before = static_cast<size_t>(std::popcount(parts >> (32 - kPart) >> 1));
    const uint16_t capabilities = word(body, 4 + 2 * before);
    if ((capabilities & kMixed) == kMixed)
        return j2kError("HT code-blocks are mixed with others, which cannot be decoded");
    header.highThroughput.declared = true;
    header.highThroughput.onlyReversible = (capabilities & kIrreversible) == 0;
    return EC_Normal;
}

/// Whether the coding parameters (the SPcod or SPcoc bytes) are what the capabilities and the transfer syntax
/// promise.
OFCondition checkPromise(Bytes parameters, const J2kHeader& header) {
    if (header.promise == J2kPromise::none) return EC_Normal;
    constexpr uint8_t kHtBlocks = 0x40, kMixedBlocks = 0x80;
    const bool blocks = (parameters[3] & kHtBlocks) != 0, reversible = parameters[4] == 1;
    if (blocks && (parameters[3] & kMixedBlocks) != 0)
        return j2kError("HT code-blocks are mixed with others, which cannot be decoded");
    if (blocks && !header.highThroughput.declared)
        return j2kError("HT code-blocks without the capabilities segment that declares them");
    if (blocks && !reversible && header.highThroughput.onlyReversible)
        return j2kError("the capabilities segment says that every component is reversible, one is not");
    if (!blocks) return j2kError("the transfer syntax promises HT code-blocks, the stream has others");
    if (header.promise == J2kPromise::losslessHighThroughput && !reversible)
        return j2kError("the transfer syntax promises a lossless stream, the stream is irreversible");
    return EC_Normal;
}

/// Checks the coding parameters (the SPcod or SPcoc bytes) for the number of precincts and packets that they
/// cause.
OFCondition checkPartition(Bytes parameters, bool ownPrecincts, const J2kHeader& header,
                           J2kPackets& packets) {
    if (parameters.size() < 5) return j2kError("a coding style segment is too short");
    if (const OFCondition result = checkPromise(parameters, header); result.bad()) return result;
    const unsigned levels = parameters[0];
    if (levels > 32) return j2kError(std::to_string(levels) + " decomposition levels");
    if (ownPrecincts && parameters.size() < 5U + levels + 1)
        return j2kError("a coding style segment does not hold its precincts");
    constexpr uint8_t kLargest = 0xFF;
    uint64_t precincts = 0;
    for (unsigned resolution = 0; resolution <= levels; ++resolution) {
        const uint8_t exponents = ownPrecincts ? parameters[5 + resolution] : kLargest;
        const unsigned below = levels - resolution;
        const uint64_t width = divideUp(header.width, uint64_t{1} << below);
        const uint64_t height = divideUp(header.height, uint64_t{1} << below);
        precincts += divideUp(width, uint64_t{1} << (exponents & 15)) *
                     divideUp(height, uint64_t{1} << (exponents >> 4));
    }
    if (precincts * header.components.size() > kPrecinctsAllowed)
        return j2kError("the image is cut into " + std::to_string(precincts) + " precincts");
    // The edges of tiles cut precincts: each tile has at least one of every resolution.
    packets.precincts = std::max(packets.precincts, precincts + uint64_t{header.tiles} * (levels + 1));
    const uint64_t count = packets.layers * packets.precincts * header.components.size();
    if (count > kPacketsAllowed)
        return j2kError("the image is cut into " + std::to_string(count) + " packets, in " +
                        std::to_string(packets.layers) + " layers");
    return EC_Normal;
}

/// Takes one coding style segment; others are of no interest here.
OFCondition checkCodingStyle(const Segment& segment, const J2kHeader& header, J2kPackets& packets) {
    if (segment.marker == kMarkerCOD) {
        if (segment.body.size() < 10) return j2kError("the coding style segment is too short");
        constexpr unsigned kProgressionOrders = 5;
        if (segment.body[1] >= kProgressionOrders)
            return j2kError("progression order " + std::to_string(segment.body[1]));
        packets.layers = std::max<uint64_t>(packets.layers, word(segment.body, 2));
        return checkPartition(segment.body.subspan(5), segment.body[0] & 1, header, packets);
    }
    if (segment.marker == kMarkerCOC) {
        const size_t index = header.components.size() < 257 ? 1 : 2;
        if (segment.body.size() < index + 6)
            return j2kError("a component's coding style segment is too short");
        return checkPartition(segment.body.subspan(index + 1), segment.body[index] & 1, header, packets);
    }
    return EC_Normal;
}

/// Reads the segments of a tile-part header, from `at` up to the start of its data.
OFCondition checkTilePartHeader(Bytes tilePart, const J2kHeader& header) {
    J2kPackets packets = header.packets;
    for (size_t at = kSotLength; at + 2 <= tilePart.size();) {
        if (word(tilePart, at) == kMarkerSOD) return EC_Normal;
        const auto segment = segmentAt(tilePart, at);
        if (!segment) break;
        if (const OFCondition result = checkCodingStyle(*segment, header, packets); result.bad())
            return result;
        at = segment->next;
    }
    return j2kError("a tile-part has no data");
}

/// Whether the stream ends with the end marker; fragments may have one byte more to be of even length.
bool endsWithMarker(Bytes stream) {
    if (!stream.empty() && stream.back() == 0) stream = stream.first(stream.size() - 1);
    return stream.size() >= 2 && word(stream, stream.size() - 2) == kMarkerEOC;
}

constexpr std::array<uint8_t, 12> kJp2Signature = {0, 0, 0, 12, 'j', 'P', ' ', ' ', 13, 10, 0x87, 10};

bool isJp2(Bytes frame) {
    return frame.size() >= kJp2Signature.size() &&
           std::equal(kJp2Signature.begin(), kJp2Signature.end(), frame.begin());
}

}  // namespace

bool startsJ2kFrame(Bytes head) {
    if (isJp2(head)) return true;
    if (head.size() < 4 || word(head, 0) != kMarkerSOC || word(head, 2) != kMarkerSIZ) return false;
    // The two markers alone can occur in packed data; the length that follows must agree with the component
    // count.
    return head.size() < 42 || word(head, 4) == kSizFixedLength + size_t{3} * word(head, 40);
}

Bytes findJ2kCodestream(Bytes frame) {
    if (!isJp2(frame)) return frame.size() >= 2 && word(frame, 0) == kMarkerSOC ? frame : Bytes{};
    constexpr uint32_t kCodestreamBox = 0x6A703263;  // "jp2c"
    for (size_t at = 0; frame.size() - at >= 8;) {
        uint64_t length = longWord(frame, at);
        size_t headerLength = 8;
        if (length == 1) {
            if (frame.size() - at < 16) break;
            length = uint64_t{longWord(frame, at + 8)} << 32 | longWord(frame, at + 12);
            headerLength = 16;
        }
        const size_t left = frame.size() - at;
        if (length == 0) length = left;  // the last box may leave its length open
        if (length < headerLength) break;
        const size_t inside = std::min<uint64_t>(length, left);
        if (longWord(frame, at + 4) == kCodestreamBox)
            return frame.subspan(at + headerLength, inside - headerLength);
        at += inside;
    }
    return {};
}

OFCondition readJ2kHeader(Bytes codestream, J2kHeader& header, J2kPromise promise) {
    header = {};
    header.promise = promise;
    if (codestream.size() < 4 || word(codestream, 0) != kMarkerSOC) return j2kError("no codestream");
    bool haveSize = false, haveStyle = false;
    for (size_t at = 2; at + 2 <= codestream.size();) {
        if (word(codestream, at) == kMarkerSOT) {
            header.tilePartsAt = at;
            return haveSize && haveStyle ? EC_Normal : j2kError("the main header is incomplete");
        }
        const auto segment = segmentAt(codestream, at);
        if (!segment) break;
        OFCondition result = EC_Normal;
        if (!haveSize) {
            if (segment->marker != kMarkerSIZ)
                return j2kError("the main header does not begin with the image size");
            result = readSize(segment->body, header);
            haveSize = true;
        } else if (segment->marker == kMarkerCAP && promise != J2kPromise::none) {
            result = haveStyle ? j2kError("the capabilities segment comes after a coding style")
                               : readCapabilities(segment->body, header);
        } else {
            result = checkCodingStyle(*segment, header, header.packets);
        }
        if (result.bad()) return result;
        if (segment->marker == kMarkerCOD) {
            header.multiComponentTransform = segment->body[4] != 0;
            header.reversible = segment->body[9] == 1;
            haveStyle = true;
        }
        at = segment->next;
    }
    return j2kError("the main header is cut or damaged");
}

OFCondition checkJ2kTileParts(Bytes codestream, const J2kHeader& header) {
    std::vector<bool> seen(header.tiles, false);
    uint32_t missing = header.tiles;
    for (size_t at = header.tilePartsAt; at + 2 <= codestream.size() && word(codestream, at) == kMarkerSOT;) {
        const size_t left = codestream.size() - at;
        if (left < kSotLength) return j2kError("the codestream is cut in a tile-part header");
        const uint32_t tile = word(codestream, at + 4);
        const uint32_t length = longWord(codestream, at + 6);
        if (tile >= header.tiles)
            return j2kError("a tile-part of tile " + std::to_string(tile) + ", which does not exist");
        if (length != 0 && length < kSotLength + 2) return j2kError("a tile-part shorter than its header");
        if (length > left)
            return j2kError("the codestream is cut: a tile-part needs " + std::to_string(length) +
                            " bytes, " + std::to_string(left) + " are there");
        // 0: the last tile-part, up to the end marker. Only the marker then shows that nothing is missing.
        if (length == 0 && !endsWithMarker(codestream))
            return j2kError("the codestream is cut: it has no end marker");
        const size_t used = length != 0 ? length : left;
        if (const OFCondition result = checkTilePartHeader(codestream.subspan(at, used), header);
            result.bad())
            return result;
        if (!seen[tile]) --missing;
        seen[tile] = true;
        at += used;
    }
    if (missing != 0)
        return j2kError("the codestream is cut: " + std::to_string(missing) + " tiles are missing");
    return EC_Normal;
}
