#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

/// The memory of one uncompressed frame, which every frame of an object is read into.
class FrameBuffer {
public:
    /// Takes `size` bytes, which are not initialised: whoever reads a frame fills them all. Throws
    /// std::bad_alloc.
    void allocate(size_t size) {
        m_bytes = std::make_unique_for_overwrite<uint8_t[]>(size);
        m_size = m_filled = size;
    }

    /// Makes the buffer `size` bytes long where it is shorter; what is added is zero, and no frame is read
    /// there.
    void widen(size_t size) {
        if (size <= m_size) return;
        auto wider = std::make_unique<uint8_t[]>(size);
        std::copy_n(m_bytes.get(), m_size, wider.get());
        m_bytes = std::move(wider);
        m_size = size;
    }

    void release() {
        m_bytes.reset();
        m_size = m_filled = 0;
    }

    uint8_t* data() { return m_bytes.get(); }
    std::span<uint8_t> bytes() { return {m_bytes.get(), m_size}; }

    /// Whether these bytes lie in the part that each frame is read into: they may be changed in any way until
    /// the next frame.
    bool refills(const void* begin, size_t count) const {
        const auto* first = static_cast<const uint8_t*>(begin);
        return first >= m_bytes.get() && first + count <= m_bytes.get() + m_filled;
    }

private:
    std::unique_ptr<uint8_t[]> m_bytes;
    size_t m_size = 0;
    size_t m_filled = 0;
};
