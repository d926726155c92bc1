#include "imgproc/bytesource.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

/// What is read after a long value was passed over: the headers of a few elements.
constexpr size_t kSmallestPortion = 4096;

}  // namespace

std::span<const uint8_t> ByteSource::look(size_t count) {
    count = std::min(count, kWindow);
    if (m_begin + count > kWindow) {
        std::copy(m_window.begin() + m_begin, m_window.begin() + m_end, m_window.begin());
        m_end -= m_begin;
        m_begin = 0;
    }
    while (m_end - m_begin < count) {
        const size_t got = more(std::span(m_window).subspan(m_end));
        if (got == 0) break;
        m_end += got;
    }
    return std::span(m_window).subspan(m_begin, std::min(count, m_end - m_begin));
}

bool ByteSource::skip(uint64_t count) {
    const size_t inWindow = std::min<uint64_t>(count, m_end - m_begin);
    m_begin += inWindow;
    uint64_t skipped = inWindow;
    if (skipped < count) {
        m_begin = m_end = 0;
        skipped += pass(count - skipped);
    }
    m_position += skipped;
    return skipped == count;
}

FileBytes::FileBytes(ObjectFile& file) : m_file(file), m_portion(kSmallestPortion) {
    if (file.error() != 0) fail(std::strerror(file.error()), ErrorClass::file);
}

size_t FileBytes::more(std::span<uint8_t> room) {
    const size_t wanted = std::min(room.size(), m_portion);
    m_portion = std::min(2 * m_portion, kWindow);
    const ssize_t got = m_file.readAt(m_offset, room.first(wanted));
    if (got < 0) {
        fail(std::strerror(errno), ErrorClass::file);
        return 0;
    }
    m_offset += static_cast<uint64_t>(got);
    return static_cast<size_t>(got);
}

uint64_t FileBytes::pass(uint64_t count) {
    const uint64_t left = m_file.size() > m_offset ? m_file.size() - m_offset : 0;
    const uint64_t passed = std::min(count, left);
    m_offset += passed;
    if (passed > kWindow) m_portion = kSmallestPortion;
    return passed;
}

InflatedBytes::InflatedBytes(ByteSource& packed, uint64_t limit) : m_packed(packed), m_limit(limit) {
    m_ended = inflateInit2(&m_stream, -MAX_WBITS) != Z_OK;
    if (m_ended) fail("the deflated data cannot be unpacked: out of memory", ErrorClass::memory);
}

InflatedBytes::~InflatedBytes() {
    inflateEnd(&m_stream);
}

size_t InflatedBytes::more(std::span<uint8_t> room) {
    m_stream.next_out = room.data();
    m_stream.avail_out = static_cast<uInt>(room.size());
    while (!m_ended && m_stream.avail_out == room.size()) {
        const std::span<const uint8_t> packed = m_packed.look(kWindow);
        m_stream.next_in = const_cast<uint8_t*>(packed.data());
        m_stream.avail_in = static_cast<uInt>(packed.size());
        const int result = inflate(&m_stream, Z_NO_FLUSH);
        m_packed.skip(packed.size() - m_stream.avail_in);
        m_ended = result != Z_OK;
        // Without more input there is no progress: the file ends in the middle of the packed data.
        if (m_ended && result != Z_STREAM_END && result != Z_BUF_ERROR)
            fail(std::string("the deflated data is damaged: ") + (m_stream.msg ? m_stream.msg : "inflate"));
    }
    const size_t got = room.size() - m_stream.avail_out;
    m_unpacked += got;
    if (m_unpacked <= m_limit) return got;
    m_ended = true;
    fail("unpacks to more than " + std::to_string(m_limit) + " bytes", ErrorClass::limit);
    return 0;
}

/// Refuses before it unpacks what would be too much.
uint64_t InflatedBytes::pass(uint64_t count) {
    if (count > m_limit - std::min(m_limit, m_unpacked)) {
        fail("unpacks to more than " + std::to_string(m_limit) + " bytes", ErrorClass::limit);
        return 0;
    }
    std::array<uint8_t, size_t{4096} * 4> scratch;
    uint64_t passed = 0;
    while (passed < count) {
        const size_t got = more(std::span(scratch).first(std::min<uint64_t>(count - passed, scratch.size())));
        if (got == 0) break;
        passed += got;
    }
    return passed;
}
