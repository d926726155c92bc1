#include "tools/backfill/Shard.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <system_error>

namespace {

/// The first `depth` folders of a path; all of it where it has no more, or `depth` is 0.
std::string studyFolder(const std::string& folder, uint32_t depth) {
    size_t end = depth == 0 ? std::string::npos : folder.find('/');
    for (uint32_t i = 1; i < depth && end != std::string::npos; ++i)
        end = folder.find('/', end + 1);
    return folder.substr(0, end);
}

}  // namespace

Shard Shard::parse(const std::string& text, uint32_t depth) {
    Shard shard{.depth = depth};
    const char* const end = text.data() + text.size();
    const auto [slash, indexError] = std::from_chars(text.data(), end, shard.index);
    const bool isParted = indexError == std::errc() && slash != end && *slash == '/';
    const auto [rest, countError] = std::from_chars(isParted ? slash + 1 : end, end, shard.count);
    if (!isParted || countError != std::errc() || rest != end || shard.index >= shard.count)
        throw std::invalid_argument("a shard is INDEX/COUNT with INDEX from 0 to COUNT-1, not \"" + text +
                                    "\"");
    return shard;
}

std::string Shard::text() const {
    return std::to_string(index) + "/" + std::to_string(count) + ":" + std::to_string(depth);
}

Shard Shard::ofText(const std::string& text) {
    const size_t colon = text.find(':');
    return parse(text.substr(0, colon),
                 colon == std::string::npos ? 0 : static_cast<uint32_t>(std::stoul(text.substr(colon + 1))));
}

bool Shard::owns(const std::string& folder) const {
    return count == 1 || stableHash(studyFolder(folder, depth)) % count == index;
}

bool Shard::mayOwnBelow(const std::string& folder) const {
    const auto levels = folder.empty() ? 0 : std::count(folder.begin(), folder.end(), '/') + 1;
    return depth == 0 || levels < depth || owns(folder);
}

uint64_t stableHash(const std::string& text) {
    uint64_t hash = 0xCBF29CE484222325;
    for (const char byte : text)
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
    hash = (hash ^ hash >> 33) * 0xFF51AFD7ED558CCD;
    hash = (hash ^ hash >> 33) * 0xC4CEB9FE1A85EC53;
    return hash ^ hash >> 33;
}
