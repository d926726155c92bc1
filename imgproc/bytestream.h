#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcistrmf.h>

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

/// Reads a file forwards with a look ahead, inflated if wanted. What lies behind the end reads as missing.
class ByteStream {
public:
    /// From byte `offset` of the file on.
    ByteStream(const std::string& path, uint64_t offset, bool deflated);

    /// The next `count` (at most 64) bytes without taking them; empty when there are fewer.
    std::span<const uint8_t> peek(size_t count);
    /// Takes bytes that peek() has shown.
    void take(size_t count) { m_begin += count; }
    /// False when the file ends before.
    bool skip(uint64_t count);

    /// Bytes behind `offset` that were taken or skipped; inflated ones count as such.
    uint64_t position() const { return m_consumed - (m_end - m_begin); }

private:
    size_t fill(uint8_t* target, size_t capacity);

    std::unique_ptr<DcmInputFileStream> m_stream;
    std::array<uint8_t, 4096> m_buffer;
    size_t m_begin = 0;
    size_t m_end = 0;
    uint64_t m_consumed = 0;  ///< bytes that came from the stream
};
