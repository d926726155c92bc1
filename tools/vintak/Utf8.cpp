#include "tools/vintak/Utf8.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcspchrs.h>

namespace {

std::string latin1ToUtf8(const std::string& value) {
    std::string result;
    for (const char character : value) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x80) {
            result += character;
        } else {
            result += static_cast<char>(0xC0 | (byte >> 6));
            result += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return result;
}

bool isAscii(const std::string& value) {
    for (const char character : value) {
        if (static_cast<unsigned char>(character) >= 0x80 || character == 0x1B) return false;
    }
    return true;
}

}  // namespace

std::string toUtf8(const std::string& value, const std::string& characterSet) {
    if (isAscii(value)) return value;
    DcmSpecificCharacterSet converter;
    OFString result;
    if (!characterSet.empty() && converter.selectCharacterSet(characterSet).good() &&
        converter.convertString(value, result, "\\^=").good()) {
        return result;
    }
    return latin1ToUtf8(value);
}
