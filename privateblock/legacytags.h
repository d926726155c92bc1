#pragma once

#include <span>

/// One row of the relocation table: an element of group F215 as the older generation wrote it, and today's
/// key.
struct LegacyTag {
    unsigned short element;
    unsigned char key;
};

/// The older generation's two fixed blocks, as the high byte of their elements.
inline constexpr int kLegacyBlocks[] = {0xBA, 0xDA};

/// The whole relocation table, ascending by element.
std::span<const LegacyTag> legacyTags();
