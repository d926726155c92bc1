#include "tools/vintak/TagArgument.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctag.h>

#include <cstdio>

#include "tools/command/CommandLine.h"

TagArgument TagArgument::parse(const std::string& text) {
    unsigned group = 0;
    unsigned element = 0;
    int used = 0;
    const bool bracket = !text.empty() && text.front() == '(';
    const char* format = bracket ? "(%4x,%4x)%n" : "%4x,%4x%n";
    // sscanf takes signs and blanks, too.
    const bool isPlain = text.find_first_not_of("(0123456789abcdefABCDEF,)") == std::string::npos;
    if (isPlain && sscanf(text.c_str(), format, &group, &element, &used) == 2 &&
        used == static_cast<int>(text.size())) {
        return {static_cast<uint16_t>(group), static_cast<uint16_t>(element)};
    }
    DcmTag tag;
    if (text.find(',') != std::string::npos || DcmTag::findTagFromName(text.c_str(), tag).bad()) {
        throw UsageError("\"" + text + "\" is neither a tag (gggg,eeee) nor a keyword of the dictionary");
    }
    return {tag.getGroup(), tag.getElement()};
}

std::string TagArgument::number() const {
    char text[16];
    snprintf(text, sizeof text, "(%04x,%04x)", group, element);
    return text;
}

std::string TagArgument::keyword() const {
    DcmTag tag(group, element);
    const std::string name = tag.getTagName();
    return name == "Unknown Tag & Data" ? "" : name;
}
