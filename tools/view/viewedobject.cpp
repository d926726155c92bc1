#include "tools/view/viewedobject.h"

#include <algorithm>
#include <climits>
#include <filesystem>
#include <fstream>

#include "hsutils/jsontext.h"
#include "pack/PackError.h"
#include "pack/PackIndex.h"
#include "pack/packseries.h"

namespace fs = std::filesystem;

namespace view {
namespace {

bool isFile(const std::string& path) {
    std::error_code ignored;
    return fs::is_regular_file(path, ignored);
}

int linesOf(const std::string& path) {
    std::ifstream file(path);
    int lines = 0;
    for (std::string line; std::getline(file, line);)
        lines += !line.empty();
    return lines;
}

}  // namespace

ViewedObject describeResults(std::string name, const std::string& prefix, bool isPackNamed) {
    ViewedObject object{.name = std::move(name), .prefix = prefix};
    const std::string index = prefix + std::string(pack::kIndexSuffix);
    object.packed = isPackNamed ? isFile(index) : pack::isPackLatest(prefix);
    if (!object.packed) {
        object.frames = linesOf(prefix + ".desc");
    } else {
        try {
            object.frames =
                static_cast<int>(std::min<uint64_t>(pack::PackIndex(index).head().frames, INT_MAX));
        } catch (const pack::PackError& error) {
            object.error = error.what();
            return object;
        }
    }
    object.document = isFile(prefix + ".pdf");
    if (object.frames == 0 && !object.document) object.error = "it holds neither images nor a document";
    return object;
}

bool isConverted(const std::string& path, const std::string& prefix) {
    std::error_code failed;
    const auto objectTime = fs::last_write_time(path, failed);
    if (failed) return false;
    const auto resultTime = fs::last_write_time(prefix + ".desc", failed);
    if (failed || resultTime < objectTime) return false;
    const ViewedObject object = describeResults("", prefix);
    if (!object.error.empty()) return false;
    if (object.packed) {
        const auto packTime = fs::last_write_time(prefix + std::string(pack::kIndexSuffix), failed);
        return !failed && packTime >= objectTime;
    }
    for (int frame = 1; frame <= object.frames; ++frame) {
        for (const char* suffix : {".p.qi4", ".t.qi4", ".f.qi4", ".128x128t.cw1"})
            if (!isFile(prefix + "_" + std::to_string(frame) + suffix)) return false;
    }
    return true;
}

std::string objectsJson(std::span<const ViewedObject> objects) {
    const std::string nothing = "null";
    std::string json = "{\"version\": 1, \"objects\": [";
    for (size_t i = 0; i < objects.size(); ++i) {
        const ViewedObject& object = objects[i];
        const std::string prefix = "results/" + std::to_string(i) + "/o";
        json += i == 0 ? "\n" : ",\n";
        json += "{\"id\": " + std::to_string(i) + ", \"name\": " + jsonText(object.name) +
                ", \"frames\": " + std::to_string(object.frames) + ", \"prefix\": " + jsonText(prefix) +
                ", \"descriptor\": " +
                (object.frames > 0 ? jsonText(prefix + (object.packed ? ".index" : ".desc")) : nothing) +
                ", \"document\": " + (object.document ? jsonText(prefix + ".pdf") : nothing) +
                ", \"error\": " + (object.error.empty() ? nothing : jsonText(object.error)) + "}";
    }
    return json + "\n]}\n";
}

}  // namespace view
