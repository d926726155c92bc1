#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/backfill/LedgerListing.h"

/// What is told of an archive while it is gone through. Folders are named below the archive: '/' between,
/// none at the end, empty for the archive itself.
class ArchiveVisitor {
public:
    virtual ~ArchiveVisitor() = default;

    /// Whether anything below a folder is wanted.
    virtual bool entersBelow(const std::string& folder) = 0;
    /// Whether the files of a folder are.
    virtual bool wantsFiles(const std::string& folder) = 0;
    /// Some files of a folder, `kPiece` at most; `isWhole`: there are no more. Once at least for each folder
    /// that is wanted and can be read.
    virtual void files(const std::string& folder, std::vector<ListedFile> found, bool isWhole) = 0;
    virtual void unreadable(const std::string& folder, const std::string& cause) = 0;
    /// Whether to stop.
    virtual bool stops() = 0;
};

inline constexpr size_t kPiece = 2000;

/// Goes through all folders of an archive, each folder's files before its folders, folders by name; links to
/// folders are not followed. Holds the names of the folders that it is in, and `kPiece` files.
/// `leftOut` is a folder that is passed over. Throws std::runtime_error when the archive itself cannot be
/// read.
void walkArchive(const std::string& archive, const std::string& leftOut, ArchiveVisitor& visitor);

/// Whether the archive can be read and anything is in it: of a storage that is not mounted an empty folder is
/// left.
bool archiveIsThere(const std::string& archive);
/// What to say of one that is not.
std::string nothingIn(const std::string& archive);

/// The next name of a list; false at its end.
using NameSource = std::function<bool(std::string&)>;

/// Tells the files of a list, whose names are below the archive or relative to it, in the list's order. One
/// that cannot be looked at is told with a size of 0: whoever works on it learns why. Returns how many were
/// refused because they lead out of the archive; the first of them is given back in `refused`.
size_t readArchiveList(const std::string& archive, const NameSource& names, ArchiveVisitor& visitor,
                       std::string& refused);
