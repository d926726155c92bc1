#include "imgproc/segmentedpalette.h"

#include <algorithm>

namespace {

enum SegmentType : unsigned { SEGMENT_DISCRETE = 0, SEGMENT_LINEAR = 1, SEGMENT_INDIRECT = 2 };

/// The words of a segmented table and the place of the next one.
class WordReader {
public:
    WordReader(std::span<const uint8_t> bytes, int entryBits) : m_bytes(bytes), m_width(entryBits / 8) {}

    size_t left() const { return (m_bytes.size() - m_position) / m_width; }

    /// Only while left() is not 0.
    unsigned next() {
        unsigned word = m_bytes[m_position];
        if (m_width == 2) word |= unsigned{m_bytes[m_position + 1]} << 8;
        m_position += m_width;
        return word;
    }

    /// A byte offset of 32 bits, lowest word first. Only while left() holds it.
    size_t nextOffset() {
        size_t offset = 0;
        for (size_t shift = 0; shift < 32; shift += m_width * 8)
            offset |= size_t{next()} << shift;
        return offset;
    }
    size_t offsetWords() const { return 4 / m_width; }

    /// A reader that starts elsewhere in the same table; false when that is outside or between words.
    bool at(size_t offset, WordReader& other) const {
        if (offset >= m_bytes.size() || offset % m_width != 0) return false;
        other = *this;
        other.m_position = offset;
        return true;
    }

private:
    std::span<const uint8_t> m_bytes;
    size_t m_width;
    size_t m_position = 0;
};

class SegmentExpander {
public:
    explicit SegmentExpander(size_t entryCount) : m_entryCount(entryCount) { m_table.reserve(entryCount); }

    bool full() const { return m_table.size() >= m_entryCount; }
    std::vector<uint16_t> take() { return std::move(m_table); }

    /// One segment; false when there is none or it makes no sense. Every good one adds an entry at least, so
    /// that the size of the table bounds the work, whatever indirect segments repeat.
    bool expand(WordReader& reader, bool indirectAllowed) {
        if (full() || reader.left() < 2) return false;
        const unsigned type = reader.next();
        const unsigned length = reader.next();
        if (length == 0) return false;
        switch (type) {
            case SEGMENT_DISCRETE:
                return addDiscrete(reader, length);
            case SEGMENT_LINEAR:
                return addLinear(reader, length);
            case SEGMENT_INDIRECT:
                return indirectAllowed && addIndirect(reader, length);
            default:
                return false;
        }
    }

private:
    bool addDiscrete(WordReader& reader, unsigned length) {
        for (unsigned i = 0; i < length; ++i) {
            if (reader.left() == 0) return false;
            add(reader.next());
        }
        return true;
    }

    /// A ramp from the last entry so far, which it does not repeat, up to and with its end value.
    bool addLinear(WordReader& reader, int64_t length) {
        if (m_table.empty() || reader.left() == 0) return false;
        const int64_t from = m_table.back();
        const int64_t rise = int64_t{reader.next()} - from;
        for (int64_t i = 1; i <= length; ++i)
            // Rounded to the nearest entry; 65536 keeps the dividend positive for falling ramps.
            add(static_cast<unsigned>((2 * (from + 65536) * length + 2 * rise * i + length) / (2 * length) -
                                      65536));
        return true;
    }

    bool addIndirect(WordReader& reader, unsigned segments) {
        if (reader.left() < reader.offsetWords()) return false;
        WordReader copied = reader;
        if (!reader.at(reader.nextOffset(), copied)) return false;
        for (unsigned i = 0; i < segments; ++i)
            if (!expand(copied, false)) return false;
        return true;
    }

    void add(unsigned entry) {
        if (!full()) m_table.push_back(static_cast<uint16_t>(entry));
    }

    size_t m_entryCount;
    std::vector<uint16_t> m_table;
};

}  // namespace

std::vector<uint16_t> expandSegmentedPalette(std::span<const uint8_t> bytes, int entryBits,
                                             size_t entryCount) {
    if (entryBits != 8 && entryBits != 16) return {};
    WordReader reader(bytes, entryBits);
    SegmentExpander expander(entryCount);
    while (expander.expand(reader, true)) {
    }
    return expander.take();
}
