#include "vintakd/viewer/studyfiles.h"

#include "hsutils/Utils.h"

namespace {

std::string textOf(const OFDate& date) {
    OFString text;
    return date.getISOFormattedDate(text, false) ? std::string(text.data(), text.size()) : std::string();
}

std::string textOf(const OFTime& time) {
    OFString text;
    return time.getISOFormattedTime(text, true, false, false, false) ? std::string(text.data(), text.size())
                                                                     : std::string();
}

std::string line(const std::string& name, const std::string& value) {
    return name + "=\"" + value + "\"\n";
}

/// One numbered line for each record and one with their count.
std::string linesOf(const std::string& name,
                    const std::vector<std::unique_ptr<InvalidationRecord>>& records) {
    std::string text;
    unsigned int count = 0;
    for (const auto& record : records) {
        if (!record) continue;
        text += line(name + "_" + std::to_string(++count),
                     printable(record->uid) + ' ' + textOf(record->date) + ' ' + textOf(record->time));
    }
    return count == 0 ? text : text + line("CNT_" + name, std::to_string(count));
}

std::string partialContent(const CPbRContent& content) {
    std::string text;
    if (content.date().isValid()) {
        text += line("INVALIDATE_DATE", textOf(content.date()));
        text += line("INVALIDATE_TIME", textOf(content.time()));
    }
    text += linesOf("SERIES", content.series()) + linesOf("OBJINV", content.objects());
    if (content.files().empty()) return text;
    std::string names;
    for (const std::string& name : content.files())
        names += printable(name) + ' ';
    return text + line("FILES", names);
}

}  // namespace

std::string obsoleteResults(const CPbRContent& content) {
    const bool whole = content.contentKind() == PbRKind::Study;
    return whole ? line("WHOLE", "true") : partialContent(content);
}
