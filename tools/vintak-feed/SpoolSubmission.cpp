#include "tools/vintak-feed/SpoolSubmission.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "tools/broker/Job.h"
#include "tools/broker/JobPublisher.h"

namespace {

/// Another file of the same bytes and time, that is on the disk. False with errno.
bool copy(const SpoolObject& object, const std::string& to) {
    std::error_code error;
    std::filesystem::copy_file(object.path, to, std::filesystem::copy_options::overwrite_existing, error);
    errno = error.value();
    const int file = error ? -1 : open(to.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (file < 0) return false;
    const timespec times[] = {object.modified, object.modified};
    bool isDone = futimens(file, times) == 0 && fsync(file) == 0;
    if (close(file) != 0) isDone = false;
    return isDone;
}

WorkResult failureOf(const std::string& file) {
    const ErrorClass kind = errno == ENAMETOOLONG ? ErrorClass::request
                            : errno == EACCES     ? ErrorClass::file
                                                  : ErrorClass::output;
    return {.errorClass = kind, .cause = file + ": " + std::strerror(errno)};
}

}  // namespace

SpoolSubmission::SpoolSubmission(BrokerOptions broker, const std::string& spool)
    : m_broker(std::move(broker)), m_folder(spool + "/submitted") {
    (void)readPassword(m_broker);
    // Nobody listens between two objects, however far apart they come.
    m_broker.heartbeatSeconds = 0;
    std::error_code error;
    std::filesystem::create_directories(m_folder, error);
    if (error) throw std::runtime_error(m_folder + ": " + error.message());
}

SpoolSubmission::~SpoolSubmission() = default;

WorkResult SpoolSubmission::run(const SpoolObject& object) {
    const std::string name = object.version() + "-" + object.name, file = m_folder + "/" + name;
    // It is there already where an earlier run was killed behind this point.
    if (link(object.path.c_str(), file.c_str()) != 0 && errno != EEXIST) {
        // What a receiver left belongs to its account: to be read and renamed, but not linked
        // (fs.protected_hardlinks).
        const std::string half = m_folder + "/." + name;
        if (errno != EPERM || !copy(object, half)) return failureOf(file);
        if (!object.isUnchanged()) return {.kind = WorkResult::Kind::changed};
        if (rename(half.c_str(), file.c_str()) != 0) return failureOf(file);
    }
    WorkResult result = submit(object, file);
    if (result.kind == WorkResult::Kind::failed) (void)unlink(file.c_str());
    return result;
}

WorkResult SpoolSubmission::submit(const SpoolObject& object, const std::string& file) {
    try {
        const Job job = makeJob(file, object.name);
        publish(job);
        return {.kind = WorkResult::Kind::submitted, .job = job.id};
    } catch (const JobError& error) {
        return {.errorClass = ErrorClass::request, .cause = error.what()};
    } catch (const std::runtime_error& error) {
        return {.kind = WorkResult::Kind::unreachable, .cause = std::string("no broker: ") + error.what()};
    }
}

void SpoolSubmission::publish(const Job& job) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const bool isFresh = !m_publisher;
    try {
        if (!m_publisher) m_publisher = std::make_unique<JobPublisher>(m_broker, "vintak spool");
        m_publisher->publish(job);
        m_publisher->flush();
        return;
    } catch (const BrokerError&) {
        m_publisher.reset();
        if (isFresh) throw;
    }
    // The broker was started anew since the last object.
    m_publisher = std::make_unique<JobPublisher>(m_broker, "vintak spool");
    try {
        m_publisher->publish(job);
        m_publisher->flush();
    } catch (const BrokerError&) {
        m_publisher.reset();
        throw;
    }
}
