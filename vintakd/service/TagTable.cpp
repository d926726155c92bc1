#include "vintakd/service/TagTable.h"

#include <algorithm>
#include <stdexcept>

#include "imgproc/objectlimits.h"
#include "imgproc/objectscan.h"

void TagTable::reset(const VintakRequest& request) {
    clear();
    m_once = request.tagsOnce;
    m_files = request.files.size();
    m_entries.reserve(request.tags.size());
    for (const VintakRequest::Tag& tag : request.tags) {
        const size_t values = m_entries.size() < m_once ? 1 : m_files;
        m_entries.push_back({DcmTagKey(tag.group, tag.element), std::vector<std::string>(values)});
    }
}

bool TagTable::asksForForeign() const {
    return std::any_of(m_entries.begin(), m_entries.end(),
                       [](const TagValue& entry) { return isForeignGroup(entry.key.getGroup()); });
}

void TagTable::clear() {
    m_entries.clear();
    m_once = m_files = m_cursor = 0;
    m_bytes = 0;
}

void TagTable::record(const DcmTagKey& key, int index, const std::string& value) {
    const size_t start = first(index);
    const size_t count = m_entries.size() - start;
    for (size_t probe = 0; probe < count; ++probe) {
        const size_t position = (m_cursor + probe) % count;
        TagValue& entry = m_entries[start + position];
        if (!(entry.key == key)) continue;
        if (static_cast<size_t>(index) < entry.values.size()) {
            m_bytes += value.size();
            if (m_bytes > objectlimits::kAnswerBytes)
                throw std::runtime_error("the values asked for have more than " +
                                         std::to_string(objectlimits::kAnswerBytes) + " bytes");
            entry.values[index] = value;
        }
        m_cursor = (position + 1) % count;
        return;
    }
}

std::string TagTable::answer() const {
    std::string text;
    for (size_t i = 0; i < m_once; ++i)
        text.append(m_entries[i].values.front()).push_back(';');
    for (size_t file = 0; file < m_files; ++file) {
        for (size_t i = m_once; i < m_entries.size(); ++i)
            text.append(m_entries[i].values[file]).push_back(';');
    }
    return text;
}
