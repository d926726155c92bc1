#include "tools/command/ObjectSource.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "tools/command/ListReader.h"

namespace fs = std::filesystem;

namespace {

/// A file that cannot be read counts as an object: whoever works on it learns why.
bool beginsAsObject(const std::string& path) {
    constexpr std::streamoff kPreamble = 128;
    std::ifstream file(path, std::ios::binary);
    if (!file) return true;
    char magic[4];
    return file.seekg(kPreamble) && file.read(magic, sizeof magic) && std::memcmp(magic, "DICM", 4) == 0;
}

/// The processed copy of an earlier conversion, which the descriptor beside it tells from an object of that
/// name. It begins as an object does, too: where results lie among objects, every run would convert those of
/// the one before.
bool isResult(const std::string& path) {
    constexpr std::string_view kCopy = ".pdcm";
    std::error_code ignored;
    return path.ends_with(kCopy) &&
           fs::is_regular_file(path.substr(0, path.size() - kCopy.size()) + ".desc", ignored);
}

/// The folder of a word in a list, as it is kept below the output prefix; nothing when it leads out of it.
std::optional<std::string> keptFolder(const fs::path& folder) {
    const std::string kept = folder.lexically_normal().relative_path().string();
    if (kept.empty() || kept == ".") return "";
    if (kept == ".." || kept.starts_with("../")) return std::nullopt;
    return kept.ends_with('/') ? kept : kept + '/';
}

}  // namespace

bool ObjectSource::next(FoundObject& object) {
    for (;;) {
        while (!m_levels.empty()) {
            if (m_levels.back().at == m_levels.back().names.size())
                m_levels.pop_back();
            else if (takeEntry(object))
                return true;
        }
        std::string word;
        if (!m_words(word)) return false;
        if (takeWord(word, object)) return true;
    }
}

bool ObjectSource::takeWord(const std::string& word, FoundObject& object) {
    const fs::path path(word);
    std::error_code ignored;
    const bool isFolder = fs::is_directory(path, ignored);
    object = {.path = word};
    std::string kept;
    if (m_keepFolders) {
        const std::optional<std::string> folder = keptFolder(isFolder ? path : path.parent_path());
        if (!folder) {
            object.problem = "leads out of the folder of the results; name it without \"..\"";
            return true;
        }
        kept = *folder;
    }
    if (isFolder) return enter(word, kept, object);
    object.folder = kept;
    object.found = m_keepFolders;
    return true;
}

/// True when the folder cannot be read, which `object` then tells.
bool ObjectSource::enter(const std::string& path, const std::string& kept, FoundObject& object) {
    const vintakd::FolderIdentity identity = vintakd::identifyFolder(path);
    if (identity.inode != 0 && identity == m_leftOut) return false;
    Level level{.path = path.ends_with('/') ? path : path + '/', .kept = kept, .names = {}};
    std::error_code error;
    fs::directory_iterator entry(path, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error))
        level.names.push_back(entry->path().filename().string());
    std::sort(level.names.begin(), level.names.end());
    m_levels.push_back(std::move(level));
    if (!error) return false;
    object = {.path = path, .folder = kept, .problem = "the folder cannot be read: " + error.message()};
    return true;
}

bool ObjectSource::takeEntry(FoundObject& object) {
    Level& level = m_levels.back();
    const std::string name = level.names[level.at++], path = level.path + name, kept = level.kept;
    std::error_code ignored;
    const bool isLink = fs::is_symlink(path, ignored);
    const fs::file_status status = fs::status(path, ignored);
    if (fs::is_directory(status)) return !isLink && enter(path, kept + name + '/', object);
    if (!fs::is_regular_file(status) || isResult(path) || !beginsAsObject(path)) return false;
    object = {.path = path, .folder = kept, .found = true};
    return true;
}

ObjectSource::Words wordsOf(std::vector<std::string> list) {
    return [list = std::move(list), at = size_t{0}](std::string& word) mutable {
        if (at == list.size()) return false;
        word = list[at++];
        return true;
    };
}

ObjectSource::Words wordsOfList(const std::string& path, char separator) {
    return [list = std::make_shared<ListReader>(path, separator)](std::string& word) {
        return list->next(word);
    };
}
