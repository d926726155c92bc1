#pragma once

#include <cstdint>
#include <span>

namespace pack {

/// CRC-32C (Castagnoli, as in iSCSI) of bytes; `before` is that of what stands before them.
uint32_t crc32c(std::span<const uint8_t> bytes, uint32_t before = 0);

}  // namespace pack
