#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/feeding/SpoolWork.h"
#include "tools/spool/FailedFolder.h"

/// The folders of a spool, in which an object is in one state: "incoming" and "incoming/priority", "working",
/// "retry", "done" and "failed". It goes from one to the next by renaming, so all are on one file system.
/// Only "incoming" is for others to write in: whatever is in the rest cannot be exchanged by a receiver.
/// Every call but take() throws std::runtime_error where the file system refuses.
class SpoolFolders {
public:
    /// Makes the folders that are missing, and has the spool for itself while it lives. `keepDone`: finished
    /// objects go to "done", else they are deleted.
    SpoolFolders(std::string root, bool keepDone);
    ~SpoolFolders();
    SpoolFolders(const SpoolFolders&) = delete;
    SpoolFolders& operator=(const SpoolFolders&) = delete;

    std::string incoming() const { return m_root + "/incoming"; }
    std::string priority() const { return m_root + "/incoming/priority"; }
    std::string root() const { return m_root; }

    /// Takes `name` from one of the folders ("incoming", "incoming/priority", "retry") into "working";
    /// nothing when it has gone, or when another one of its name is there.
    std::optional<SpoolObject> take(const std::string& folder, const std::string& name) const;
    /// What is in "working".
    SpoolObject inWork(const std::string& name) const;
    /// Whether it is in "working" still.
    static bool isThere(const SpoolObject& object);
    /// Why an object is none to work on: a link, a pipe and the like; empty for a plain file.
    static std::string strangeness(const SpoolObject& object);

    void finish(const SpoolObject& object) const;
    void park(const SpoolObject& object) const;
    /// Sets it aside with its reason.
    void setAside(const SpoolObject& object, ErrorClass kind, const std::string& cause) const;

    /// The names in "working" or "retry", which are never many.
    std::vector<std::string> list(const std::string& folder) const;

private:
    void rename(const SpoolObject& object, const std::string& folder) const;

    std::string m_root;
    bool m_keepDone;
    int m_lock;
    FailedFolder m_failed;
};
