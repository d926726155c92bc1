#include "tools/view/exportsite.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "tools/view/indexpage.h"

namespace fs = std::filesystem;

namespace view {
namespace {

void exportObject(const ViewedObject& object, const fs::path& folder) {
    fs::create_directories(folder);
    const auto copy = [&](const std::string& end) {
        fs::copy_file(object.prefix + end, folder / ("o" + end));
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
    if (!file.flush()) throw std::runtime_error("cannot write " + unfinished);
    fs::rename(unfinished, path);
}

}  // namespace

void exportSite(const std::string& pageFolder, std::span<const ViewedObject> objects,
                const std::string& folder) {
    if (fs::exists(folder) && !fs::is_empty(folder)) throw std::runtime_error(folder + " is not empty");
    fs::create_directories(folder);
    fs::copy(pageFolder, folder, fs::copy_options::recursive);
    replaceFile(folder + "/index.html", indexPage(pageFolder, objects));
    for (size_t i = 0; i < objects.size(); ++i)
        if (objects[i].error.empty())
            exportObject(objects[i], fs::path(folder) / "results" / std::to_string(i));
    // Last: a list that is there names only what is there.
    replaceFile(folder + "/objects.json", objectsJson(objects));
}

}  // namespace view
