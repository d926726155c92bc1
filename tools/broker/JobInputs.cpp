#include "tools/broker/JobInputs.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace {

/// The path without links; empty with errno.
std::string resolved(const std::string& path) {
    const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), std::free);
    return real ? std::string(real.get()) : std::string();
}

std::pair<dev_t, ino_t> identityOf(const std::string& folder) {
    struct stat status {};
    if (stat(folder.c_str(), &status) != 0) return {};
    return {status.st_dev, status.st_ino};
}

WorkResult refusal(ErrorClass kind, const std::string& cause) {
    return {.kind = WorkResult::Kind::failed, .errorClass = kind, .cause = cause};
}

}  // namespace

JobInputs::JobInputs(JobInputRules rules, SpoolWork& work) : m_rules(std::move(rules)), m_work(work) {
    for (auto* folders : {&m_rules.folders, &m_rules.submitted})
        for (std::string& folder : *folders) {
            const std::string real = resolved(folder);
            if (real.empty()) throw std::runtime_error(folder + ": " + std::strerror(errno));
            folder = real;
        }
    for (const std::string& folder : m_rules.submitted)
        m_submitted[folder] = identityOf(folder);
}

bool JobInputs::isAllowed(const std::string& path) const {
    return m_rules.folders.empty() ||
           std::any_of(m_rules.folders.begin(), m_rules.folders.end(), [&](const std::string& folder) {
               return folder == "/" || path.starts_with(folder + "/");
           });
}

bool JobInputs::isSubmitted(const std::string& input) const {
    if (m_submitted.empty()) return false;
    const std::string folder = resolved(input.substr(0, std::max<size_t>(input.rfind('/'), 1)));
    const auto known = m_submitted.find(folder);
    // Of one that is not mounted another folder is left, in which everything is missing.
    return known != m_submitted.end() && known->second == identityOf(folder);
}

WorkResult JobInputs::run(const SpoolObject& object) {
    SpoolObject found = object;
    struct stat status {};
    found.path = resolved(object.path);
    if (found.path.empty() || stat(found.path.c_str(), &status) != 0) {
        const int error = errno;
        // Only whoever has done the job deletes it there: a message that came twice.
        if (error == ENOENT && isSubmitted(object.path))
            return {.kind = WorkResult::Kind::done, .isRepeat = true};
        return refusal(ErrorClass::file, object.path + ": " + std::strerror(error));
    }
    if (!isAllowed(found.path))
        return refusal(ErrorClass::request,
                       object.path + " is in no folder that this worker takes inputs from");
    if (!S_ISREG(status.st_mode)) return refusal(ErrorClass::object, object.path + " is not a regular file");
    found.modified = status.st_mtim;
    found.size = status.st_size;
    WorkResult result = m_work.run(found);
    result.version = found.version();
    return result;
}

// A job of another name is not the one that the file waits for, and did not put its results where they
// belong.
void JobInputs::finished(const std::string& input, const std::string& name) const {
    struct stat status {};
    if (!isSubmitted(input) || lstat(input.c_str(), &status) != 0) return;
    const SpoolObject submitted{
        .name = name, .path = input, .modified = status.st_mtim, .size = status.st_size};
    if (input.ends_with("/" + submitted.version() + "-" + name)) (void)unlink(input.c_str());
}
