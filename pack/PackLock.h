#pragma once

#include <string>

namespace pack {

/// Held for the moments in which a pack's files come under their names or go: one process at a time does that
/// in a folder. Whoever has the file of `tokenOf()` writes the pack; who finds it gone or another's has been
/// overtaken by a later writer of the same names, and leaves everything as it is.
class PackLock {
public:
    /// `prefix` is that of the pack. Throws PackError when somebody holds the folder for long.
    explicit PackLock(const std::string& prefix);
    ~PackLock();
    PackLock(const PackLock&) = delete;
    PackLock& operator=(const PackLock&) = delete;

    /// Waits until the names in the folder are on the disk. Throws PackError.
    void sync() const;
    static std::string tokenOf(const std::string& prefix);

private:
    int m_folder;
};

}  // namespace pack
