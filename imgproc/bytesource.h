#pragma once

#include <zlib.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "hsutils/errorclass.h"
#include "imgproc/objectfile.h"

/// Bytes that are read once from front to back through a small window.
class ByteSource {
public:
    ByteSource() = default;
    virtual ~ByteSource() = default;
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;

    /// Bytes that look() can show at once.
    static constexpr size_t kWindow = size_t{64} << 10;

    /// The next `count` bytes, at most kWindow, without taking them; fewer where the bytes end. Valid until
    /// the next call.
    std::span<const uint8_t> look(size_t count);

    /// Takes `count` bytes; false when they end before, all of them being taken then.
    bool skip(uint64_t count);

    /// Bytes taken so far.
    uint64_t position() const { return m_position; }

    /// Why the bytes ended early, empty when they did not.
    const RefusalText& failure() const { return m_failure; }

protected:
    /// Puts the bytes that follow into `room` and returns their number, 0 at the end.
    virtual size_t more(std::span<uint8_t> room) = 0;

    /// Passes over up to `count` of the bytes that more() would give next; how many. Less effort than reading
    /// where the source can do it.
    virtual uint64_t pass(uint64_t count) = 0;

    void fail(std::string failure, ErrorClass kind = ErrorClass::object) {
        m_failure = RefusalText(std::move(failure), kind);
    }

private:
    std::array<uint8_t, kWindow> m_window;
    size_t m_begin = 0;
    size_t m_end = 0;
    uint64_t m_position = 0;
    RefusalText m_failure = "";
};

/// The bytes of a file, which is borrowed.
class FileBytes : public ByteSource {
public:
    explicit FileBytes(ObjectFile& file);

protected:
    size_t more(std::span<uint8_t> room) override;
    uint64_t pass(uint64_t count) override;

private:
    ObjectFile& m_file;
    uint64_t m_offset = 0;  ///< of the next byte to read
    size_t m_portion;       ///< bytes to read at once: few after a long value, more and more after that
};

/// What raw deflated bytes unpack to, but not more than `limit` bytes.
class InflatedBytes : public ByteSource {
public:
    /// Borrows the packed bytes, from where they stand.
    InflatedBytes(ByteSource& packed, uint64_t limit);
    ~InflatedBytes() override;

protected:
    size_t more(std::span<uint8_t> room) override;
    uint64_t pass(uint64_t count) override;

private:
    ByteSource& m_packed;
    uint64_t m_limit;
    uint64_t m_unpacked = 0;
    z_stream m_stream{};
    bool m_ended = false;
};
