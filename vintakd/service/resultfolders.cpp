#include "vintakd/service/resultfolders.h"

#include <cstring>

#include "hsutils/ClassedError.h"

namespace {

using vintakd::FolderIdentity;

[[noreturn]] void refuse(const std::string& prefix, const std::string& cause) {
    throw ClassedError("Error writing files: " + prefix + ": " + cause, ErrorClass::output);
}

void compare(const std::string& prefix, const FolderIdentity& clients) {
    constexpr const char* kWhy =
        " (one of them has a mount namespace, as by PrivateTmp or in a container, or a working directory of "
        "its "
        "own); nothing was converted";
    const std::string folder = vintakd::folderOfPrefix(prefix);
    if (folder.empty()) return;
    int error = 0;
    const FolderIdentity ours = vintakd::identifyFolder(folder, &error);
    if (ours == clients) return;
    if (ours.inode == 0)
        refuse(prefix, "the daemon sees no folder at " + folder + ": " + std::strerror(error) +
                           "; its client does" + kWhy);
    if (clients.inode == 0)
        refuse(prefix, "the client sees no folder at " + folder + "; the daemon does" + kWhy);
    refuse(prefix, "the daemon sees another folder at " + folder + " than the client" + kWhy);
}

}  // namespace

void checkResultFolders(const VintakRequest& request) {
    if (request.dumponly) return;
    for (size_t i = 0; i < request.folders.size(); ++i) {
        compare(request.outputPrefix + request.files[i], request.folders[i].output);
        if (!request.noCached) compare(request.cachePrefix + request.files[i], request.folders[i].cache);
    }
}
