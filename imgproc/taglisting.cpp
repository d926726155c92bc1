#include "imgproc/taglisting.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "imgproc/elementvalues.h"
#include "imgproc/objectlimits.h"

namespace {

constexpr std::string_view kSpaces = "                                ";
/// Each sequence takes two levels, its own and that of its items.
constexpr int kDeepestLevel = 2 * objectlimits::kNestingDepth;

bool isSequence(const DcmObject& object) {
    return object.ident() == EVR_SQ;
}

/// The whole value as the toolkit renders it; empty when there is none, or when it is a binary value that was
/// left in the file.
std::string valueText(DcmElement& element) {
    if (!element.valueLoaded()) {
        if (!element.isaString() || element.getLength() == 0) return {};
        element.loadAllDataIntoMemory();
    }
    if (!element.isaString() && element.getLength() > objectlimits::kBinaryValueBytes) return {};
    return shownValue(element);
}

}  // namespace

char* TagListing::escapeNewLines(const char* text) {
    if (text == nullptr || *text == '\0') return nullptr;
    const std::string_view source(text);
    const auto count = std::count_if(source.begin(), source.end(),
                                     [](char c) { return c == '\r' || c == '\n' || c == '\\'; });
    if (count == 0) return nullptr;
    char* escaped = new char[source.size() + static_cast<size_t>(count) + 1];
    char* out = escaped;
    for (const char c : source) {
        if (c == '\r' || c == '\n' || c == '\\') {
            *out++ = '\\';
            *out++ = c == '\r' ? 'r' : c == '\n' ? 'n' : '\\';
        } else {
            *out++ = c;
        }
    }
    *out = '\0';
    return escaped;
}

void TagListing::printTag(DcmObject& object, int level) {
    char tag[12];
    std::snprintf(tag, sizeof tag, "(%04x,%04x)", object.getGTag(), object.getETag());
    *m_out << kSpaces.substr(0, static_cast<size_t>(std::clamp(level, 0, 32))) << tag << ' '
           << object.getTag().getVRName();
}

void TagListing::printLine(DcmElement& element, int level) {
    const std::string text = valueText(element);
    const std::unique_ptr<char[]> escaped(m_escapeNewLines ? escapeNewLines(text.c_str()) : nullptr);
    const std::string_view value = escaped ? escaped.get() : text.c_str();
    m_valueBytes += value.size();
    if (m_valueBytes > objectlimits::kAnswerBytes)
        throw std::runtime_error("its dump has more than " + std::to_string(objectlimits::kAnswerBytes) +
                                 " bytes");
    printTag(element, level);
    *m_out << ' ' << value << '\n';
}

void TagListing::printElement(DcmElement& element, int level) {
    if (isSequence(element))
        printSequence(static_cast<DcmSequenceOfItems&>(element), level);
    else
        printLine(element, level);
}

void TagListing::printSequence(DcmSequenceOfItems& sequence, int level) {
    printTag(sequence, level);
    *m_out << " **start**\n";
    for (DcmObject* item = nullptr; (item = sequence.nextInContainer(item)) != nullptr;)
        printItem(static_cast<DcmItem&>(*item), level + 1);
    printTag(sequence, level);
    *m_out << " **end**\n";
}

void TagListing::printItem(DcmItem& item, int level) {
    printTag(item, level);
    *m_out << " **start**\n";
    for (DcmObject* object = nullptr;
         level < kDeepestLevel && (object = item.nextInContainer(object)) != nullptr;)
        printElement(static_cast<DcmElement&>(*object), level + 1);
    printTag(item, level);
    *m_out << " **end**\n";
}
