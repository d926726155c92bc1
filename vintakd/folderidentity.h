#pragma once

#include <cstdint>
#include <string>

namespace vintakd {

/// A folder as one process sees it. The same path may lead another process to another folder: one with a
/// mount namespace of its own (PrivateTmp, a container) or another working directory.
struct FolderIdentity {
    uint64_t device = 0;
    uint64_t inode = 0;  ///< 0: there is no such folder, or it cannot be seen

    bool operator==(const FolderIdentity&) const = default;
};

/// The folders that the results of one object lie in, as the client sees them. Host byte order; it follows
/// the file list of a request once for every name.
struct ResultFolders {
    FolderIdentity output;
    FolderIdentity cache;
};
static_assert(sizeof(ResultFolders) == 32);

/// What the calling process sees at `path`; `error`, when not null, gets errno, 0 where there is a folder.
FolderIdentity identifyFolder(const std::string& path, int* error = nullptr);

/// The folder of the files whose names begin with `prefix`: what stands before its last '/'. "." where it has
/// none; empty for an empty prefix, which leaves it to the daemon where the files lie.
std::string folderOfPrefix(const std::string& prefix);

/// `path` from the root, without "." and, where they lead to the same file, without "..": behind a symbolic
/// link a ".." is the folder above the link's target. A trailing separator is kept; an empty text is the
/// working directory's prefix.
std::string absolutePath(const std::string& path);

}  // namespace vintakd
