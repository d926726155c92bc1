#include "imgproc/bytestream.h"

#include <algorithm>
#include <cstring>

ByteStream::ByteStream(const std::string& path, uint64_t offset, bool deflated)
    : m_stream(std::make_unique<DcmInputFileStream>(path.c_str(), static_cast<offile_off_t>(offset))) {
    if (deflated) m_stream->installCompressionFilter(ESC_zlib);
}

size_t ByteStream::fill(uint8_t* target, size_t capacity) {
    // An inflating stream may need several attempts before the first byte comes out.
    for (int attempt = 0; attempt < 64 && m_stream->good() && !m_stream->eos(); ++attempt) {
        const offile_off_t count = m_stream->read(target, static_cast<offile_off_t>(capacity));
        if (count <= 0) continue;
        m_consumed += static_cast<uint64_t>(count);
        return static_cast<size_t>(count);
    }
    return 0;
}

std::span<const uint8_t> ByteStream::peek(size_t count) {
    if (m_end - m_begin < count) {
        std::memmove(m_buffer.data(), m_buffer.data() + m_begin, m_end - m_begin);
        m_end -= m_begin;
        m_begin = 0;
    }
    while (m_end - m_begin < count) {
        const size_t added = fill(m_buffer.data() + m_end, m_buffer.size() - m_end);
        if (added == 0) return {};
        m_end += added;
    }
    return {m_buffer.data() + m_begin, count};
}

bool ByteStream::skip(uint64_t count) {
    const uint64_t held = std::min<uint64_t>(count, m_end - m_begin);
    m_begin += static_cast<size_t>(held);
    count -= held;
    while (count > 0) {
        const offile_off_t skipped = m_stream->skip(static_cast<offile_off_t>(count));
        if (skipped <= 0) {
            std::array<uint8_t, 4096> rubbish;
            const size_t read = fill(rubbish.data(), std::min<uint64_t>(count, rubbish.size()));
            if (read == 0) return false;
            count -= read;
            continue;
        }
        m_consumed += static_cast<uint64_t>(skipped);
        count -= static_cast<uint64_t>(skipped);
    }
    return true;
}
