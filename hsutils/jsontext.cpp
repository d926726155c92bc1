#include "hsutils/jsontext.h"

#include <cstddef>
#include <cstdio>

#include "hsutils/utf8.h"

namespace {

unsigned byteAt(std::string_view text, size_t index) {
    return static_cast<unsigned char>(text[index]);
}

}  // namespace

std::string jsonText(std::string_view text) {
    std::string result = "\"";
    for (size_t i = 0; i < text.size();) {
        const size_t length = utf8SequenceLength(text, i);
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
