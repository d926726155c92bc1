#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "tools/picture/window.h"

namespace picture {

/// Bytes of the header before the stream in ".p.qi4" and ".t.qi4".
inline constexpr size_t kElementHeaderSize = 24;

/// The header at the start of a stream element: "QXID", the version 0x00180001 and four 32-bit floats,
/// intercept, slope, window width (negative for MONOCHROME1) and centre. None when the bytes are no such
/// header.
std::optional<DisplayWindow> readElementHeader(std::span<const uint8_t> bytes);

}  // namespace picture
