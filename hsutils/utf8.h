#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Bytes of the well-formed UTF-8 sequence at `index`, which is in `text`; 0 when there is none.
size_t utf8SequenceLength(std::string_view text, size_t index);
/// Whether all of it is well-formed.
bool isUtf8(std::string_view text);
/// Appends a character, which is no surrogate and not beyond U+10FFFF.
void appendUtf8(std::string& text, unsigned codePoint);
