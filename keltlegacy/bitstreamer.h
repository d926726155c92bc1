#pragma once

#include <cstddef>
#include <cstdint>

namespace keltlegacy {

/// Thrown, as a plain int, by the writer when its buffer is full: the caller keeps what fits.
inline constexpr int kOutputCapacityReached = 3;

/// Writes a bit stream, least significant bit first in little-endian words, into a caller's buffer.
class BitStreamer {
public:
    /// The buffer is borrowed and never written beyond `capacity` bytes.
    BitStreamer(unsigned char* buffer, size_t capacity) : m_buffer(buffer), m_capacity(capacity) {}

    /// Appends the low `count` (0 to 32) bits of `bits`, whose higher bits must be 0.
    /// Throws `outputCapacityReached` when a whole word no longer fits; the buffer is filled to its last byte
    /// then.
    void append(uint32_t bits, int count) {
        m_accumulator |= static_cast<uint64_t>(bits) << m_pending;
        m_pending += count;
        if (m_pending >= kWordBits) storeWord();
    }
    void appendZeros(uint64_t count);
    /// Stores the last, partial word as far as the capacity allows. Nothing may be appended afterwards.
    void close();

    /// Bytes stored so far; never more than the capacity.
    size_t bytesWritten() const { return m_written; }

private:
    static constexpr int kWordBits = 32;

    void storeWord();
    void storeBytes(size_t count);

    unsigned char* m_buffer;
    size_t m_capacity;
    size_t m_written = 0;
    uint64_t m_accumulator = 0;
    int m_pending = 0;  ///< Bits in the accumulator, below 32 between two appends.
};

}  // namespace keltlegacy
