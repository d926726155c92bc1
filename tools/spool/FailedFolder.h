#pragma once

#include <string>

#include "hsutils/errorclass.h"

/// Where objects that cannot be converted are put aside, each with a file beside it that says why.
class FailedFolder {
public:
    /// Makes the folder where there is none. Throws std::runtime_error.
    explicit FailedFolder(std::string folder);

    /// Whether a failure is the object's own: a full disk, a daemon that went away or a file that cannot be
    /// read would put aside what is good.
    static bool isForIt(ErrorClass kind);

    /// Moves the object at `path` (absolute) into `kept`, which is below the folder, empty or with a '/' at
    /// its end, and writes NAME.reason.txt; a name that is taken gets a number, one too long for that is cut.
    /// What bears the name may be anything that can be renamed. Returns the new path. Throws
    /// std::runtime_error; the object is then where it was.
    std::string take(const std::string& path, const std::string& kept, ErrorClass kind,
                     const std::string& cause) const;

private:
    std::string m_folder;
};
