#include "tools/view/exportsite.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "tools/view/indexpage.h"

namespace fs = std::filesystem;

namespace view {
namespace {

/// The library says "Input/output error" where the disk is full.
[[noreturn]] void failToWrite(const fs::path& path, const std::error_code& error) {
    std::error_code unknown;
    const fs::space_info space = fs::space(path.parent_path(), unknown);
    const bool isFull = error == std::errc::io_error && !unknown && space.available == 0;
    throw std::runtime_error("cannot write " + path.string() + ": " +
                             (isFull ? std::generic_category().message(ENOSPC) : error.message()));
}

void copyFile(const fs::path& from, const fs::path& to) {
    std::error_code error;
    if (!fs::is_regular_file(from, error))
        throw std::runtime_error("cannot read " + from.string() + ": " +
                                 (error ? error.message() : "not a regular file"));
    if (!fs::copy_file(from, to, error)) failToWrite(to, error);
}

void makeFolder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) failToWrite(folder, error);
}

void copyFolder(const fs::path& from, const fs::path& to) {
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(from)) {
        const fs::path target = to / entry.path().lexically_relative(from);
        if (entry.is_directory())
            makeFolder(target);
        else
            copyFile(entry.path(), target);
    }
}

/// Removes what is in a folder that was empty, and the folder where it is new, unless all came to its end.
class UnfinishedSite {
public:
    explicit UnfinishedSite(const std::string& folder) : m_folder(folder), m_isNew(!fs::exists(folder)) {}
    ~UnfinishedSite() {
        if (m_folder.empty()) return;
        std::error_code ignored;
        if (m_isNew) {
            fs::remove_all(m_folder, ignored);
            return;
        }
        for (fs::directory_iterator entry(m_folder, ignored); entry != fs::directory_iterator();
             entry.increment(ignored))
            fs::remove_all(entry->path(), ignored);
    }
    UnfinishedSite(const UnfinishedSite&) = delete;
    UnfinishedSite& operator=(const UnfinishedSite&) = delete;
    void keep() { m_folder.clear(); }

private:
    std::string m_folder;
    bool m_isNew;
};

void exportObject(const ViewedObject& object, const fs::path& folder, const std::function<bool()>& stops) {
    makeFolder(folder);
    const auto copy = [&](const std::string& end) {
        if (stops()) throw std::runtime_error("interrupted");
        copyFile(object.prefix + end, folder / ("o" + end));
    };
    if (object.packed) {
        for (const std::string_view suffix : kPackSuffixes)
            if (suffix == ".index" || fs::exists(object.prefix + std::string(suffix)))
                copy(std::string(suffix));
    } else if (object.frames > 0) {
        copy(".desc");
    }
    if (object.document) copy(".pdf");
    for (int frame = 1; !object.packed && frame <= object.frames; ++frame)
        for (const std::string_view suffix : kFrameSuffixes)
            if (suffix != ".raw") copy("_" + std::to_string(frame) + std::string(suffix));
}

/// By rename, so that nobody ever reads half of it.
void replaceFile(const std::string& path, const std::string& content) {
    const std::string unfinished = path + ".part";
    std::ofstream file(unfinished, std::ios::binary);
    file << content;
    if (!file.flush()) failToWrite(unfinished, std::make_error_code(std::errc::io_error));
    fs::rename(unfinished, path);
}

}  // namespace

void exportSite(const std::string& pageFolder, std::span<const ViewedObject> objects,
                const std::string& folder, const std::function<bool()>& stops) {
    if (fs::exists(folder) && !fs::is_empty(folder)) throw std::runtime_error(folder + " is not empty");
    UnfinishedSite site(folder);
    makeFolder(folder);
    copyFolder(pageFolder, folder);
    replaceFile(folder + "/index.html", indexPage(pageFolder, objects));
    for (size_t i = 0; i < objects.size(); ++i)
        if (objects[i].error.empty())
            exportObject(objects[i], fs::path(folder) / "results" / std::to_string(i), stops);
    // Last: a list that is there names only what is there.
    replaceFile(folder + "/objects.json", objectsJson(objects));
    site.keep();
}

}  // namespace view
