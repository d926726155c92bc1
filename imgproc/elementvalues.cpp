#include "imgproc/elementvalues.h"

#include <cstdlib>
#include <string_view>

#include "hsutils/Utils.h"

namespace {

/// Numbers that the standard calls "other": one value whatever their length, of which the toolkit's text has
/// the first number only.
bool isOtherNumbers(const DcmElement& element) {
    switch (element.ident()) {
        case EVR_OF:
        case EVR_OD:
        case EVR_OL:
        case EVR_OV:
            return true;
        default:
            return false;
    }
}

}  // namespace

std::optional<std::string> textOf(DcmElement& element, unsigned long position) {
    OFString text;
    if (element.getOFString(text, position).bad()) return std::nullopt;
    return unpadded({text.data(), text.size()});
}

std::optional<std::string> textOf(DcmItem& item, const DcmTagKey& key) {
    OFString text;
    if (item.findAndGetOFString(key, text).bad()) return std::nullopt;
    return unpadded({text.data(), text.size()});
}

std::optional<std::string> textsOf(DcmElement& element) {
    OFString all;
    if (element.getOFStringArray(all).bad()) return std::nullopt;
    std::string_view rest(all.data(), all.size());
    std::string texts;
    for (;;) {
        const size_t end = rest.find('\\');
        texts += unpadded(rest.substr(0, end));
        if (end == std::string_view::npos) return texts;
        texts += '\\';
        rest.remove_prefix(end + 1);
    }
}

std::string shownValue(DcmElement& element) {
    OFString text;
    if (!isOtherNumbers(element)) {
        if (element.getOFStringArray(text).bad()) text.clear();
        return {text.data(), text.size()};
    }
    std::string numbers;
    const unsigned long count = element.getNumberOfValues();
    for (unsigned long i = 0; i < count && element.getOFString(text, i).good(); ++i) {
        if (i > 0) numbers += '\\';
        numbers.append(text.data(), text.size());
    }
    return numbers;
}

std::optional<double> decimalOf(DcmElement& element, unsigned long position) {
    OFString text;
    if (element.getOFString(text, position).bad()) return std::nullopt;
    return std::strtod(text.c_str(), nullptr);
}

std::span<uint8_t> valueBytes(DcmElement& element) {
    if (element.ident() == EVR_SQ || element.getLength() == 0) return {};
    Uint8* bytes = nullptr;
    Uint16* words = nullptr;
    Sint16* signedWords = nullptr;
    if (element.getUint8Array(bytes).good() && bytes != nullptr) return {bytes, element.getLength()};
    if (element.getUint16Array(words).good() && words != nullptr)
        return {reinterpret_cast<uint8_t*>(words), element.getLength()};
    if (element.getSint16Array(signedWords).good() && signedWords != nullptr)
        return {reinterpret_cast<uint8_t*>(signedWords), element.getLength()};
    return {};
}
