#include "hsutils/jsontext.h"

#include <cstddef>
#include <cstdio>

namespace {

unsigned byteAt(std::string_view text, size_t index) {
    return static_cast<unsigned char>(text[index]);
}

/// Bytes of the well-formed UTF-8 sequence at `index`; 0 when there is none.
size_t sequenceLength(std::string_view text, size_t index) {
    const unsigned first = byteAt(text, index);
    if (first < 0x80) return 1;
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || length > text.size() - index) return 0;
    // No longer form than needed, no surrogate, nothing beyond U+10FFFF: all that the second byte tells.
    const unsigned second = byteAt(text, index + 1);
    const unsigned least = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const unsigned most = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    if (second < least || second > most) return 0;
    for (size_t i = 2; i < length; ++i)
        if ((byteAt(text, index + i) & 0xC0) != 0x80) return 0;
    return length;
}

}  // namespace

std::string jsonText(std::string_view text) {
    std::string result = "\"";
    for (size_t i = 0; i < text.size();) {
        const size_t length = sequenceLength(text, i);
        const char character = text[i];
        if (length == 0) {
            result += "\xEF\xBF\xBD";
        } else if (character == '"' || character == '\\') {
            (result += '\\') += character;
        } else if (byteAt(text, i) < 0x20 || character == 0x7F) {
            char escape[8];
            (void)std::snprintf(escape, sizeof escape, "\\u%04x", byteAt(text, i));
            result += escape;
        } else {
            result += text.substr(i, length);
        }
        i += length == 0 ? 1 : length;
    }
    return result + '"';
}
