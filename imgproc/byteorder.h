#pragma once

#include <cstdint>
#include <span>

/// The number in the first two bytes.
inline uint16_t twoBytes(std::span<const uint8_t> bytes, bool bigEndian) {
    const unsigned low = bytes[bigEndian ? 1 : 0], high = bytes[bigEndian ? 0 : 1];
    return static_cast<uint16_t>(low | high << 8);
}

/// The number in the first four bytes.
inline uint32_t fourBytes(std::span<const uint8_t> bytes, bool bigEndian) {
    const uint32_t first = twoBytes(bytes, bigEndian), second = twoBytes(bytes.subspan(2), bigEndian);
    return bigEndian ? first << 16 | second : second << 16 | first;
}
