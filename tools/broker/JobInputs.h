#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tools/feeding/SpoolWork.h"

/// Which files jobs may name. Folders are absolute.
struct JobInputRules {
    std::vector<std::string> folders{};    ///< inputs lie below one of these; none: anywhere
    std::vector<std::string> submitted{};  ///< what lies right in one of these is deleted when it was done
};

/// Looks at the file of a job before anybody works on it: a job is words of somebody else.
class JobInputs : public SpoolWork {
public:
    /// Borrows `work`, which gets objects with their true path, size and time. Throws std::runtime_error for
    /// folders that are not there.
    JobInputs(JobInputRules rules, SpoolWork& work);

    WorkResult run(const SpoolObject& object) override;

    /// The job of this input and name was done and is settled.
    void finished(const std::string& input, const std::string& name) const;

private:
    bool isAllowed(const std::string& path) const;
    bool isSubmitted(const std::string& input) const;

    using Identity = std::pair<dev_t, ino_t>;

    JobInputRules m_rules;
    std::map<std::string, Identity> m_submitted;  ///< as they were at the start
    SpoolWork& m_work;
};
