#pragma once

#include <cstdint>
#include <span>

class DcmElement;

/// The bytes of an element's value as a little endian file has them, whether its representation has bytes or
/// words. Nothing when it is empty, cannot be read or is a sequence. They belong to the element.
std::span<std::uint8_t> valueBytes(DcmElement& element);
