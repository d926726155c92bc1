#include "vintakd/folderidentity.h"

#include <sys/stat.h>

#include <cerrno>

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

}  // namespace vintakd
