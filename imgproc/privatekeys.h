#pragma once

/// Keys of the private block (privateblock/PBItem.h) that the extraction engine writes.
namespace privatekeys {
inline constexpr unsigned short kWindowWidths = 0x11;
inline constexpr unsigned short kWindowCenters = 0x12;
inline constexpr unsigned short kMinimumValues = 0x13;
inline constexpr unsigned short kMaximumValues = 0x14;
inline constexpr unsigned short kFrameNumbers = 0x1D;
inline constexpr unsigned short kActualBits = 0x1E;
inline constexpr unsigned short kOverlays = 0x71;            ///< sequence, an item for each overlay
inline constexpr unsigned short kOverlayCompression = 0x72;  ///< in such an item: "NONE"
inline constexpr unsigned short kOverlayBitmap = 0x73;       ///< in such an item
}  // namespace privatekeys
