#include "imgproc/elementheader.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dctag.h>

#include <array>

#include "imgproc/byteorder.h"

namespace {

DcmTagKey tagAt(std::span<const uint8_t> bytes, bool bigEndian) {
    return {twoBytes(bytes, bigEndian), twoBytes(bytes.subspan(2), bigEndian)};
}

constexpr unsigned kLetters = 26;

/// What the toolkit makes of each pair of capital letters: asked for one, it compares it with all names.
std::array<DcmEVR, kLetters * kLetters> namedVrs() {
    std::array<DcmEVR, kLetters * kLetters> vrs{};
    for (unsigned i = 0; i < vrs.size(); ++i) {
        const char name[] = {static_cast<char>('A' + i / kLetters), static_cast<char>('A' + i % kLetters),
                             '\0'};
        vrs[i] = DcmVR(name).getEVR();
    }
    return vrs;
}

DcmVR vrAt(std::span<const uint8_t> bytes) {
    static const auto vrs = namedVrs();
    const unsigned first = bytes[0] - unsigned{'A'}, second = bytes[1] - unsigned{'A'};
    if (first < kLetters && second < kLetters) return DcmVR(vrs[first * kLetters + second]);
    const char name[] = {static_cast<char>(bytes[0]), static_cast<char>(bytes[1]), '\0'};
    return DcmVR(name);
}

/// Items and end markers have no value representation in any encoding.
bool isItemMarker(const DcmTagKey& tag) {
    return tag == DCM_Item || tag == DCM_ItemDelimitationItem || tag == DCM_SequenceDelimitationItem;
}

bool isKnown(const DcmTagKey& key) {
    return DcmTag(key).error().good();
}

}  // namespace

ElementEncoding encodingOf(const DcmXfer& transferSyntax) {
    return {static_cast<bool>(transferSyntax.isExplicitVR()),
            static_cast<bool>(transferSyntax.isBigEndian())};
}

ElementEncoding guessEncoding(std::span<const uint8_t> first) {
    std::array<uint8_t, 6> bytes{};
    std::copy_n(first.begin(), std::min(first.size(), bytes.size()), bytes.begin());
    const DcmTagKey little = tagAt(bytes, false), big = tagAt(bytes, true);
    const bool explicitVr = vrAt(std::span(bytes).subspan(4)).isStandard();
    if (!isKnown(big)) return {explicitVr, false};
    if (!isKnown(little)) return {explicitVr, true};
    return {explicitVr, little.getGroup() > 0xFF && big.getGroup() <= 0xFF};
}

std::optional<ElementHeader> readElementHeader(ByteSource& bytes, ElementEncoding encoding) {
    const auto start = bytes.look(12);
    if (start.size() < 8) return std::nullopt;
    ElementHeader header;
    header.tag = tagAt(start, encoding.bigEndian);
    const bool withVr = encoding.explicitVr && !isItemMarker(header.tag);
    const DcmVR vr = withVr ? vrAt(start.subspan(4)) : DcmVR(EVR_UNKNOWN);
    header.vr = vr.getEVR();
    // "na" stands for items in the toolkit's table, so that an element which claims it is read as one.
    const bool isLong = vr.usesExtendedLengthEncoding() && header.vr != EVR_na;
    if (!withVr) {
        header.length = fourBytes(start.subspan(4), encoding.bigEndian);
    } else if (!isLong) {
        header.length = twoBytes(start.subspan(6), encoding.bigEndian);
    } else if (start.size() < 12) {
        return std::nullopt;
    } else {
        header.length = fourBytes(start.subspan(8), encoding.bigEndian);
    }
    bytes.skip(withVr && isLong ? 12 : 8);
    return header;
}

std::optional<ElementHeader> readItemHeader(ByteSource& bytes, ElementEncoding encoding) {
    const auto start = bytes.look(8);
    if (start.size() < 8) return std::nullopt;
    const ElementHeader header{tagAt(start, encoding.bigEndian), EVR_na,
                               fourBytes(start.subspan(4), encoding.bigEndian)};
    bytes.skip(8);
    return header;
}
