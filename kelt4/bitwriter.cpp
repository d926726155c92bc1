#include "kelt4/bitwriter.h"

#include <algorithm>
#include <cstring>

namespace dvq::kelt4 {

uint64_t CBitWriter::getTotal() const {
    const uint64_t extra = m_exhausted ? 8 * uint64_t{m_extraBytes} : 0;
    return 64 * static_cast<uint64_t>(wordsStored()) + extra + m_bits;
}

void CBitWriter::putBits(uint64_t value, unsigned count) {
    if (m_bits + count < m_limit) {
        if (count < 64) value &= (uint64_t{1} << count) - 1;
        m_accumulator |= value << m_bits;
        m_bits += count;
        return;
    }
    for (unsigned i = 0; i < count; ++i)
        putBit((value >> i) & 1);
}

void CBitWriter::append(const uint64_t* words, uint64_t bits) {
    // The last whole word is left to the bit-wise path, which knows what comes after it.
    if (m_limit == 64 && m_wholeWords > 1) {
        const unsigned shift = m_bits;
        uint64_t* const last = m_start + m_wholeWords - 1;
        const auto count = std::min<uint64_t>(bits / 64, static_cast<uint64_t>(last - m_current));
        if (count > 0 && shift == 0) {
            std::memcpy(m_current, words, count * sizeof(uint64_t));
        } else if (count > 0) {
            m_current[0] = m_accumulator | words[0] << shift;
            for (uint64_t i = 1; i < count; ++i)
                m_current[i] = words[i - 1] >> (64 - shift) | words[i] << shift;
            m_accumulator = words[count - 1] >> (64 - shift);
        }
        m_current += count;
        words += count;
        bits -= 64 * count;
    }
    for (; bits >= 64; bits -= 64)
        putBits(*words++, 64);
    if (bits > 0) putBits(*words, static_cast<unsigned>(bits));
}

void CBitWriter::storePartial() {
    if (m_bits == 0) return;
    if (wordsStored() < m_wholeWords) {
        *m_current = m_accumulator;
    } else {
        storeBytes((m_bits + 7) / 8);
    }
}

void CBitWriter::useBuffer(uint64_t* start, size_t bytes) {
    m_start = start;
    m_current = start;
    m_wholeWords = bytes >> 3;
    m_extraBytes = static_cast<unsigned>(bytes & 7);
    m_exhausted = false;
    m_limit = m_wholeWords > 0 ? 64 : 8 * m_extraBytes + 1;
}

void CBitWriter::dropPendingBit() {
    m_accumulator = 0;
    m_bits = 0;
}

void CBitWriter::complete() {
    const size_t remaining = m_wholeWords - wordsStored();
    if (remaining > 0) {
        *m_current++ = m_accumulator;
        m_accumulator = 0;
        m_bits = 0;
        if (remaining == 1) m_limit = 8 * m_extraBytes + 1;
        return;
    }
    if (m_bits != 1) {
        storeBytes(m_extraBytes);
        m_accumulator >>= 8 * m_extraBytes;
        m_bits = 1;
        m_exhausted = true;
    }
    flushBuffer();
}

void CBitWriter::storeBytes(unsigned count) {
    auto* bytes = reinterpret_cast<unsigned char*>(m_current);
    for (unsigned i = 0; i < count; ++i)
        bytes[i] = static_cast<unsigned char>(m_accumulator >> (8 * i));
}

}  // namespace dvq::kelt4
