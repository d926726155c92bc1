#include "vintakd/viewer/includelist.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "imgproc/taglist.h"

namespace {

DcmTagKey tagOfLine(const char* line) {
    unsigned int group = 0, element = 0;
    // NOLINTNEXTLINE(cert-err34-c): of numbers that are too long the low bits count, as of all others
    if (std::sscanf(line, "(%x,%x)", &group, &element) != 2) return DcmTagKey(0, 0);
    return DcmTagKey(static_cast<Uint16>(group), static_cast<Uint16>(element));
}

}  // namespace

IncludeList IncludeList::configured() {
    IncludeList list;
    if (const char* folder = std::getenv("DOWNLOAD_HOME"))
        list.read((std::string(folder) + "/privtags.cfg").c_str());
    if (const char* folder = std::getenv("CONF")) list.read((std::string(folder) + "/include.conf").c_str());
    return list;
}

void IncludeList::read(const char* path) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path, "r"), std::fclose);
    if (!file) return;
    char line[255];
    while (std::fgets(line, sizeof line, file.get()))
        m_tags.push_back(tagOfLine(line));

    isGrouped = false;
    std::sort(m_tags.begin(), m_tags.end(),
              [](const DcmTagKey& a, const DcmTagKey& b) { return tagcomp(&a, &b) < 0; });
    isGrouped = true;
    // An entry for a whole group absorbs the entries of that group behind it, so that the list stays in order
    // when element 0 equals every element of its group.
    for (size_t i = 0; i + 1 < m_tags.size(); ++i)
        if (m_tags[i].getElement() == 0 && m_tags[i + 1].getGroup() == m_tags[i].getGroup())
            m_tags[i + 1] = m_tags[i];
}

bool IncludeList::includes(const DcmTagKey& tag) const {
    return !m_tags.empty() &&
           std::bsearch(&tag, m_tags.data(), m_tags.size(), sizeof(DcmTagKey), tagcomp) != nullptr;
}
