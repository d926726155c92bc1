#include "tools/view/findobjects.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace view {
namespace {

bool beginsAsObject(const fs::path& path) {
    constexpr std::streamoff kPreamble = 128;
    std::ifstream file(path, std::ios::binary);
    char magic[4];
    return file.seekg(kPreamble) && file.read(magic, sizeof magic) && std::memcmp(magic, "DICM", 4) == 0;
}

std::vector<std::string> objectsBelow(const std::string& folder) {
    std::vector<std::string> objects;
    constexpr auto kOptions = fs::directory_options::skip_permission_denied;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder, kOptions))
        if (entry.is_regular_file() && beginsAsObject(entry.path())) objects.push_back(entry.path().string());
    std::sort(objects.begin(), objects.end());
    return objects;
}

}  // namespace

std::vector<std::string> findObjects(const std::vector<std::string>& words) {
    std::vector<std::string> objects;
    for (const std::string& word : words) {
        if (!fs::exists(word)) throw std::runtime_error("there is no " + word);
        if (!fs::is_directory(word)) {
            objects.push_back(word);
            continue;
        }
        const std::vector<std::string> below = objectsBelow(word);
        objects.insert(objects.end(), below.begin(), below.end());
    }
    return objects;
}

}  // namespace view
