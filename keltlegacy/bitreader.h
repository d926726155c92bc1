#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace keltlegacy {

/// Reads bits, the least significant of each byte first. Where the stream was cut, reading ends for good.
class BitReader {
public:
    explicit BitReader(std::span<const uint8_t> bytes) : m_bytes(bytes) {}

    /// The next `count` (0 to 32) bits, the first one lowest. 0, and nothing taken, when there are not so
    /// many left: ended() is true then.
    uint32_t read(int count) {
        if (m_ended || bitsLeft() < static_cast<uint64_t>(count)) {
            m_ended = true;
            return 0;
        }
        uint32_t bits = 0;
        for (int i = 0; i < count; ++i, ++m_position)
            bits |= static_cast<uint32_t>(m_bytes[m_position / 8] >> (m_position % 8) & 1) << i;
        return bits;
    }

    /// Whether more bits were asked for than there are; what was read since is of no use.
    bool ended() const { return m_ended; }
    uint64_t position() const { return m_position; }
    uint64_t bitsLeft() const { return uint64_t{m_bytes.size()} * 8 - m_position; }

private:
    std::span<const uint8_t> m_bytes;
    uint64_t m_position = 0;
    bool m_ended = false;
};

}  // namespace keltlegacy
