#include "codecs/j2kframes.h"

#include <algorithm>
#include <array>

#include "codecs/j2kcodestream.h"

namespace {

/// Item `number` of the sequence, null when there is none.
DcmPixelItem* itemAt(DcmPixelSequence& sequence, uint32_t number) {
    DcmPixelItem* item = nullptr;
    return sequence.getItem(item, number).good() ? item : nullptr;
}

/// Whether a fragment begins a frame; only its first bytes are read.
bool beginsFrame(DcmPixelItem& fragment) {
    std::array<uint8_t, 42> head{};
    const uint32_t length = std::min<uint32_t>(fragment.getLength(), head.size());
    return length >= 4 && fragment.getPartialValue(head.data(), 0, length).good() &&
           startsJ2kFrame({head.data(), length});
}

/// The offsets of the basic offset table, empty when it has none.
std::vector<uint32_t> offsetTable(DcmPixelSequence& sequence) {
    std::vector<uint32_t> offsets;
    DcmPixelItem* table = itemAt(sequence, 0);
    Uint8* bytes = nullptr;
    if (!table || table->getLength() < 4 || table->getUint8Array(bytes).bad() || !bytes) return offsets;
    for (uint32_t at = 0; at + 4 <= table->getLength(); at += 4)
        offsets.push_back(bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 |
                          uint32_t{bytes[at + 3]} << 24);
    return offsets;
}

/// By the offset table: false when it does not say where the frame lies.
bool locateByTable(DcmPixelSequence& sequence, uint32_t items, uint32_t frame, J2kFragmentRange& range) {
    const std::vector<uint32_t> offsets = offsetTable(sequence);
    if (frame >= offsets.size()) return false;
    const bool last = frame + 1 == offsets.size();
    uint64_t offset = 0;
    range = {0, last ? items : 0};
    DcmObject* item = itemAt(sequence, 1);
    for (uint32_t number = 1; number < items && item; ++number) {
        if (offset == offsets[frame]) range.first = number;
        if (!last && offset == offsets[frame + 1]) range.end = number;
        offset += 8 + uint64_t{static_cast<DcmPixelItem*>(item)->getLength()};
        item = sequence.nextInContainer(item);
    }
    return range.first != 0 && range.end > range.first;
}

/// By the fragments that begin a codestream.
bool locateByMarkers(DcmPixelSequence& sequence, uint32_t items, uint32_t frame, uint32_t hint,
                     J2kFragmentRange& range) {
    uint32_t number = 1, passed = 0;
    if (hint > 1 && hint < items) {
        number = hint;
        passed = frame;
    }
    range = {};
    DcmObject* item = itemAt(sequence, number);
    for (; number < items && item; ++number, item = sequence.nextInContainer(item)) {
        if (!beginsFrame(static_cast<DcmPixelItem&>(*item))) continue;
        if (range.first != 0) {
            range.end = number;
            return true;
        }
        if (passed++ == frame) range.first = number;
    }
    range.end = items;
    return range.first != 0;
}

}  // namespace

OFCondition locateJ2kFrame(DcmPixelSequence& sequence, uint32_t frame, uint32_t frames, uint32_t hint,
                           J2kFragmentRange& range) {
    const auto items = static_cast<uint32_t>(sequence.card());
    if (items < 2) return j2kError("the pixel data has no fragments");
    if (frame >= frames)
        return j2kError("frame " + std::to_string(frame + 1) + " of " + std::to_string(frames));
    if (items - 1 == frames) {
        range = {frame + 1, frame + 2};
        return EC_Normal;
    }
    if (frames == 1) {
        range = {1, items};
        return EC_Normal;
    }
    if (hint > 1 && hint < items && locateByMarkers(sequence, items, frame, hint, range)) return EC_Normal;
    if (locateByTable(sequence, items, frame, range)) return EC_Normal;
    if (locateByMarkers(sequence, items, frame, 0, range)) return EC_Normal;
    return j2kError("frame " + std::to_string(frame + 1) + " of " + std::to_string(frames) +
                    " is not among the " + std::to_string(items - 1) + " fragments");
}

J2kFrameBytes::~J2kFrameBytes() {
    if (m_borrowed) m_borrowed->compact();
}

OFCondition J2kFrameBytes::load(DcmPixelSequence& sequence, const J2kFragmentRange& range) {
    const bool single = range.end - range.first == 1;
    DcmObject* next = itemAt(sequence, range.first);
    for (uint32_t number = range.first; number < range.end && next; ++number) {
        auto* item = static_cast<DcmPixelItem*>(next);
        const size_t length = item->getLength();
        Uint8* value = nullptr;
        if (length != 0) {
            if (const OFCondition result = item->getUint8Array(value); result.bad()) return result;
            if (!value) return j2kError("fragment " + std::to_string(number) + " cannot be read");
        }
        if (single) {
            m_borrowed = item;
            m_bytes = {value, length};
            return EC_Normal;
        }
        m_joined.insert(m_joined.end(), value, value + length);
        item->compact();
        next = sequence.nextInContainer(item);
    }
    m_bytes = m_joined;
    return m_bytes.empty() ? j2kError("the frame has no bytes") : EC_Normal;
}
