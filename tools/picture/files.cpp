#include "tools/picture/files.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>

#include "tools/picture/packedframe.h"

namespace picture {

namespace fs = std::filesystem;

std::vector<uint8_t> readFile(const std::string& path) {
    if (const auto packed = packedFileOf(path)) return readPacked(*packed);
    constexpr uintmax_t kLargest = uintmax_t{1} << 30;
    std::error_code error;
    if (!fs::exists(path, error)) throw PictureError("no such file");
    if (!fs::is_regular_file(path, error)) throw PictureError("not a regular file");
    const uintmax_t size = fs::file_size(path, error);
    if (error) throw PictureError(error.message());
    if (size > kLargest) throw PictureError("larger than 1 GiB");

    std::ifstream file(path, std::ios::binary);
    if (!file) throw PictureError("cannot be opened");
    std::vector<uint8_t> bytes(static_cast<size_t>(size));
    file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (static_cast<uintmax_t>(file.gcount()) != size) throw PictureError("cannot be read to its end");
    return bytes;
}

bool isFile(const std::string& path) {
    if (const auto packed = packedFileOf(path)) return isInPack(*packed);
    std::error_code error;
    return fs::is_regular_file(path, error);
}

std::string whyUnknown(const std::string& path) {
    std::error_code error;
    if (!packedFileOf(path) && !fs::exists(path, error))
        return path.find(".index#") == std::string::npos ? "no such file"
                                                         : "no frame of a pack: they are #1, #2 and so on";
    if (path.ends_with(".index")) return "a whole pack: name a frame, as in " + path + "#1";
    return "not one of .p.qi4, .t.qi4, .f.qi4, .cw1 and .raw";
}

std::string withSuffix(const std::string& path, std::string_view from, std::string_view to) {
    return path.substr(0, path.size() - from.size()).append(to);
}

FrameName frameNameOf(const std::string& path) {
    if (const auto packed = packedFileOf(path)) {
        const std::string stem = packed->index + '#' + std::to_string(packed->place);
        return {stem, stem + ".desc", -1};
    }
    const size_t folder = path.find_last_of('/');
    const size_t underscore = path.find_last_of('_');
    if (underscore == std::string::npos || (folder != std::string::npos && underscore < folder)) return {};
    FrameName name;
    const char* end = path.data() + path.size();
    const auto [dot, error] = std::from_chars(path.data() + underscore + 1, end, name.frame);
    if (error != std::errc() || dot == end || *dot != '.' || name.frame < 1) return {};
    name.stem = path.substr(0, static_cast<size_t>(dot - path.data()));
    name.descriptor = path.substr(0, underscore) + ".desc";
    return name;
}

}  // namespace picture
