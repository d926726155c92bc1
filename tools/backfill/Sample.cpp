#include "tools/backfill/Sample.h"

#include <bit>
#include <utility>

void Sample::files(const std::string& folder, std::vector<ListedFile> found, bool /*isWhole*/) {
    for (ListedFile& file : found) {
        Class& of = m_classes[static_cast<int>(std::bit_width(static_cast<uint64_t>(file.size)))];
        ++of.objects;
        of.bytes += file.size;
        if (!folder.empty()) file.name.insert(0, folder + "/");
        if (of.kept.size() < m_most) {
            of.kept.push_back(std::move(file));
            continue;
        }
        // Each of so many is kept with the same chance.
        const auto place = std::uniform_int_distribution<int64_t>(0, of.objects - 1)(m_chance);
        if (place < static_cast<int64_t>(m_most)) of.kept[static_cast<size_t>(place)] = std::move(file);
    }
}
