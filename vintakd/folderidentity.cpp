#include "vintakd/folderidentity.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

namespace vintakd {

FolderIdentity identifyFolder(const std::string& path, int* error) {
    struct stat status {};
    int problem = stat(path.c_str(), &status) == 0 ? 0 : errno;
    if (problem == 0 && !S_ISDIR(status.st_mode)) problem = ENOTDIR;
    if (error) *error = problem;
    if (problem != 0) return {};
    return {.device = status.st_dev, .inode = status.st_ino};
}

std::string folderOfPrefix(const std::string& prefix) {
    if (prefix.empty()) return {};
    const size_t slash = prefix.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : prefix.substr(0, slash);
}

std::string absolutePath(const std::string& path) {
    const std::filesystem::path whole = std::filesystem::absolute(path.empty() ? "./" : path);
    const std::filesystem::path plain = whole.lexically_normal();
    std::filesystem::path passed, above;
    for (const std::filesystem::path& part : whole) {
        passed /= part;
        if (part == "..") above = passed;
    }
    if (above.empty()) return plain.string();
    const FolderIdentity folder = identifyFolder(above.string());
    const bool isSame = folder.inode == 0 || folder == identifyFolder(above.lexically_normal().string());
    return (isSame ? plain : whole).string();
}

}  // namespace vintakd
