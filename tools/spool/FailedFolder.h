#pragma once

#include <string>

#include "tools/vintak/ObjectSource.h"
#include "tools/vintak/Session.h"

/// Where objects that cannot be converted are put aside, each with a file beside it that says why.
class FailedFolder {
public:
    /// Makes the folder where there is none. Throws std::runtime_error.
    explicit FailedFolder(std::string folder);

    /// Whether a failure is the object's own: a full disk, a daemon that went away or a file that cannot be
    /// read would put aside what is good.
    static bool isForIt(ErrorClass kind);

    /// Moves the object, keeping its folder, and writes NAME.reason.txt; a name that is taken gets a number.
    /// Returns the new path. Throws std::runtime_error; the object is then where it was.
    std::string take(const FoundObject& object, const Outcome& outcome) const;

private:
    std::string m_folder;
};
