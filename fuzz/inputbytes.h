#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>

/// Takes a target's input apart from the front. What is missing at the end reads as zero, so that every input
/// means something.
class InputBytes {
public:
    InputBytes(const uint8_t* data, size_t size) : m_rest(data, size) {}

    /// A number in the machine's byte order.
    template <typename T>
    T number() {
        T value{};
        const size_t count = std::min(sizeof value, m_rest.size());
        if (count > 0) std::memcpy(&value, m_rest.data(), count);
        m_rest = m_rest.subspan(count);
        return value;
    }
    uint8_t byte() { return number<uint8_t>(); }

    /// At most `most` bytes.
    std::span<const uint8_t> bytes(size_t most) {
        const auto taken = m_rest.first(std::min(most, m_rest.size()));
        m_rest = m_rest.subspan(taken.size());
        return taken;
    }
    /// Bytes with their number before them, in one byte.
    std::string text() {
        const auto taken = bytes(byte());
        return {taken.begin(), taken.end()};
    }
    std::span<const uint8_t> rest() const { return m_rest; }

private:
    std::span<const uint8_t> m_rest;
};
