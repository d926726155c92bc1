#include "hsutils/utf8.h"

namespace {

unsigned byteAt(std::string_view text, size_t index) {
    return static_cast<unsigned char>(text[index]);
}

}  // namespace

size_t utf8SequenceLength(std::string_view text, size_t index) {
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

bool isUtf8(std::string_view text) {
    for (size_t at = 0; at < text.size();) {
        const size_t length = utf8SequenceLength(text, at);
        if (length == 0) return false;
        at += length;
    }
    return true;
}

void appendUtf8(std::string& text, unsigned codePoint) {
    const auto append = [&text](unsigned byte) { text += static_cast<char>(byte); };
    if (codePoint < 0x80) return append(codePoint);
    if (codePoint < 0x800) {
        append(0xC0 | codePoint >> 6);
    } else if (codePoint < 0x10000) {
        append(0xE0 | codePoint >> 12);
        append(0x80 | (codePoint >> 6 & 0x3F));
    } else {
        append(0xF0 | codePoint >> 18);
        append(0x80 | (codePoint >> 12 & 0x3F));
        append(0x80 | (codePoint >> 6 & 0x3F));
    }
    append(0x80 | (codePoint & 0x3F));
}
