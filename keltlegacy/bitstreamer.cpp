#include "keltlegacy/bitstreamer.h"

#include <algorithm>

namespace keltlegacy {

void BitStreamer::appendZeros(uint64_t count) {
    for (; count > kWordBits; count -= kWordBits)
        append(0, kWordBits);
    append(0, static_cast<int>(count));
}

void BitStreamer::close() {
    storeBytes(static_cast<size_t>(m_pending + 7) / 8);
    m_pending = 0;
}

void BitStreamer::storeWord() {
    constexpr size_t kWordBytes = kWordBits / 8;
    if (m_capacity - m_written < kWordBytes) {
        storeBytes(kWordBytes);
        throw int{kOutputCapacityReached};
    }
    for (size_t i = 0; i < kWordBytes; ++i)
        m_buffer[m_written + i] = static_cast<unsigned char>(m_accumulator >> (8 * i));
    m_written += kWordBytes;
    m_accumulator >>= kWordBits;
    m_pending -= kWordBits;
}

void BitStreamer::storeBytes(size_t count) {
    count = std::min(count, m_capacity - m_written);
    for (size_t i = 0; i < count; ++i)
        m_buffer[m_written + i] = static_cast<unsigned char>(m_accumulator >> (8 * i));
    m_written += count;
}

}  // namespace keltlegacy
