#pragma once

#include <string>
#include <utility>

#include "tools/feeding/SpoolWork.h"

/// Looks at an archive's object before somebody works on it: it may be gone by now, and what lies in an
/// archive need not be an object. A name in a list or a folder is worth no look at its bytes before.
class ArchiveWork : public SpoolWork {
public:
    /// `work` is borrowed. `all`: files that do not begin as a DICOM file does ("DICM" at byte 128) are
    /// worked on too. While nothing is in the folder `archive`, no object of it is gone: nobody can reach
    /// them.
    ArchiveWork(SpoolWork& work, std::string archive, bool all)
        : m_work(work), m_archive(std::move(archive)), m_all(all) {}

    WorkResult run(const SpoolObject& object) override;

private:
    SpoolWork& m_work;
    std::string m_archive;
    bool m_all;
};
