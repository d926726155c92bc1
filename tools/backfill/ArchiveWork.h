#pragma once

#include "tools/feeding/SpoolWork.h"

/// Looks at an archive's object before somebody works on it: it may be gone by now, and what lies in an
/// archive need not be an object. A name in a list or a folder is worth no look at its bytes before.
class ArchiveWork : public SpoolWork {
public:
    /// `work` is borrowed. `all`: files that do not begin as a DICOM file does ("DICM" at byte 128) are
    /// worked on too.
    ArchiveWork(SpoolWork& work, bool all) : m_work(work), m_all(all) {}

    WorkResult run(const SpoolObject& object) override;

private:
    SpoolWork& m_work;
    bool m_all;
};
