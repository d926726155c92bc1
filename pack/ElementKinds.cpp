#include "pack/ElementKinds.h"

#include <dirent.h>

#include <cerrno>
#include <memory>
#include <set>
#include <string_view>

#include "pack/layout.h"

namespace pack {
namespace {

constexpr uint8_t kAny = (1U << kElements.size()) - 1;

struct Close {
    void operator()(DIR* folder) const { closedir(folder); }
};

std::string folderOf(const std::string& prefix) {
    return prefix.substr(0, prefix.rfind('/') + 1);
}

}  // namespace

ElementKinds::ElementKinds(const std::vector<std::string>& prefixes, uint64_t most) {
    std::set<std::string> folders;
    for (const std::string& prefix : prefixes) {
        m_kinds[prefix] = 0;
        folders.insert(folderOf(prefix));
    }
    for (const std::string& folder : folders) {
        if (read(folder, most)) continue;
        for (auto& [prefix, kinds] : m_kinds)
            if (folderOf(prefix) == folder) kinds = kAny;
    }
}

uint8_t ElementKinds::of(const std::string& prefix) const {
    const auto found = m_kinds.find(prefix);
    return found == m_kinds.end() ? kAny : found->second;
}

/// False when not all names were seen.
bool ElementKinds::read(const std::string& folder, uint64_t most) {
    const std::unique_ptr<DIR, Close> entries(opendir(folder.empty() ? "." : folder.c_str()));
    if (!entries) return false;
    for (uint64_t count = 0;; ++count) {
        errno = 0;
        const dirent* entry = readdir(entries.get());
        if (!entry) return errno == 0;
        if (count == most) return false;
        note(folder, entry->d_name);
    }
}

/// A name is that of a frame's file when it is an object's, "_", a number, a suffix.
void ElementKinds::note(const std::string& folder, std::string_view name) {
    for (size_t i = 0; i < kElements.size(); ++i) {
        if (!name.ends_with(kElements[i].suffix)) continue;
        const std::string_view stem = name.substr(0, name.size() - kElements[i].suffix.size());
        const size_t end = stem.find_last_not_of("0123456789");
        if (end == std::string_view::npos || stem[end] != '_') continue;
        const auto object = m_kinds.find(folder + std::string(stem.substr(0, end)));
        if (object != m_kinds.end()) object->second = static_cast<uint8_t>(object->second | 1U << i);
    }
}

}  // namespace pack
