#pragma once

#include <cstdint>
#include <span>

/// FNV-1a over bytes, to pin results that are too long to be written down; `before` continues another sum.
inline uint64_t checksum(std::span<const uint8_t> bytes, uint64_t before = 0xCBF29CE484222325) {
    for (const uint8_t byte : bytes)
        before = (before ^ byte) * 0x100000001B3;
    return before;
}
