#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// Expands one channel's Segmented Palette Color Lookup Table Data, (0028,1221) to (0028,1223).
///
/// `bytes` is the element's value in little endian order, its words of `entryBits` bits, 8 or 16. At most
/// `entryCount` entries come out, as wide as the words. Data that ends early or makes no sense ends the table
/// where it does; the result then has fewer entries, at worst none.
std::vector<uint16_t> expandSegmentedPalette(std::span<const uint8_t> bytes, int entryBits,
                                             size_t entryCount);
