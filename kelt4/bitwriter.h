#pragma once

#include <cstddef>
#include <cstdint>

#include "kelt4/bitstreamer.h"

namespace dvq::kelt4 {

/// Writes a stream of bits into 64-bit words, least significant bit first.
///
/// The buffer holds a number of whole words and 0 to 7 bytes more. A new writer has no buffer; the first bit,
/// and later every bit that finds the buffer full, calls flushBuffer(), which provides room or throws. A
/// writer is used by one thread.
class CBitWriter : public CBitRawStreamer {
public:
    virtual const char* getType() const = 0;
    virtual int getMode() const { return 'w'; }
    /// Bits written so far.
    virtual uint64_t getTotal() const;
    virtual uint64_t getStoredTotal() const { return getTotal(); }
    /// Called when no room is left; on return the buffer has room again.
    virtual void flushBuffer() = 0;
    /// Announces the size of the whole stream in bytes; only writers that allocate once listen.
    virtual void setSize(size_t /*bytes*/) {}

    void putBit(bool bit) {
        m_accumulator |= static_cast<uint64_t>(bit) << m_bits;
        if (++m_bits == m_limit) complete();
    }
    /// The count (at most 64) low bits of value, bit 0 first.
    void putBits(uint64_t value, unsigned count);
    /// The first bits of an array of words; whole words are copied where the buffer has room for them.
    void append(const uint64_t* words, uint64_t bits);
    /// Stores the bits that do not fill a word yet, so that the buffer is complete; writing may go on.
    void storePartial();

protected:
    /// Makes an empty buffer of the given size current.
    void useBuffer(uint64_t* start, size_t bytes);
    /// Takes back the bit that found no room.
    void dropPendingBit();

    uint64_t* bufferStart() const { return m_start; }
    size_t wholeWords() const { return m_wholeWords; }
    bool hasBuffer() const { return m_start != nullptr; }

private:
    void complete();
    size_t wordsStored() const { return static_cast<size_t>(m_current - m_start); }
    void storeBytes(unsigned count);

    uint64_t* m_start = nullptr;
    uint64_t* m_current = nullptr;
    size_t m_wholeWords = 0;
    unsigned m_extraBytes = 0;
    /// The extra bytes are written: only the bit that overflowed is still pending.
    bool m_exhausted = false;
    uint64_t m_accumulator = 0;
    unsigned m_bits = 0;
    /// Number of bits at which the accumulator is full; in the extra bytes one more than they hold.
    unsigned m_limit = 1;
};

}  // namespace dvq::kelt4
