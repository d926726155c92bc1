#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace keltlegacy {

/// Thrown by the reader where the stream was cut.
struct EndOfStream {};

/// Reads bits, the least significant of each byte first.
class BitReader {
public:
    explicit BitReader(std::span<const uint8_t> bytes) : m_bytes(bytes) {}

    /// The next `count` (0 to 32) bits, the first one lowest. Throws EndOfStream when there are not so many
    /// left.
    uint32_t read(int count) {
        if (bitsLeft() < static_cast<uint64_t>(count)) throw EndOfStream();
        uint32_t bits = 0;
        for (int i = 0; i < count; ++i, ++m_position)
            bits |= static_cast<uint32_t>(m_bytes[m_position / 8] >> (m_position % 8) & 1) << i;
        return bits;
    }

    uint64_t position() const { return m_position; }
    uint64_t bitsLeft() const { return uint64_t{m_bytes.size()} * 8 - m_position; }

private:
    std::span<const uint8_t> m_bytes;
    uint64_t m_position = 0;
};

}  // namespace keltlegacy
