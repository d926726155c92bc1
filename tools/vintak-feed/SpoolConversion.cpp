#include "tools/vintak-feed/SpoolConversion.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "vintakd/ipc/ipcexceptions.h"

namespace {

constexpr const char* kPrefix = "/object";
constexpr const char* kDescriptor = "object.desc";  ///< there in every folder of results

/// An instance UID as it may stand in an object; anything else is not passed on as one.
bool isUid(const std::string& text) {
    constexpr size_t kLongest = 64;
    return !text.empty() && text.size() <= kLongest &&
           text.find_first_not_of("0123456789.") == std::string::npos;
}

/// Takes the UIDs from the answer to a conversion that asks for their tags, in their order.
void takeIdentity(const std::string& answer, WorkResult& result) {
    std::istringstream values(answer);
    for (std::string* uid : {&result.study, &result.series, &result.object}) {
        std::getline(values, *uid, ';');
        uid->erase(uid->find_last_not_of(std::string(" \0\n", 3)) + 1);
        if (!isUid(*uid)) uid->clear();
    }
}

std::vector<SpoolOutput> filesIn(const std::string& folder, const std::string& shownAs) {
    const std::unique_ptr<DIR, int (*)(DIR*)> open(opendir(folder.c_str()), closedir);
    if (!open) throw std::runtime_error(folder + ": " + std::strerror(errno));
    std::vector<SpoolOutput> files;
    while (const dirent* entry = readdir(open.get())) {
        struct stat status {};
        if (fstatat(dirfd(open.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0)
            throw std::runtime_error(folder + "/" + entry->d_name + ": " + std::strerror(errno));
        if (S_ISREG(status.st_mode))
            files.push_back({shownAs + "/" + entry->d_name, static_cast<uint64_t>(status.st_size)});
    }
    std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) { return a.path < b.path; });
    return files;
}

}  // namespace

SpoolConversion::SpoolConversion(SpoolConversionOptions options, std::function<bool()> stops)
    : m_options(std::move(options)),
      m_stops(std::move(stops)),
      m_results(m_options.results, kDescriptor, m_options.sync) {}

size_t SpoolConversion::servants() {
    try {
        const std::shared_ptr<Session> used = session();
        if (used->gateway().daemonLives()) return used->channels();
        forget(used);
    } catch (const std::runtime_error&) {
        // As good as none: why not, the first try would say.
    }
    return 0;
}

bool SpoolConversion::isDone(const std::string& results, const std::string& key, int64_t since) {
    constexpr int64_t kClocks = 60;
    struct stat status {};
    return stat((results + "/" + key + "/" + kDescriptor).c_str(), &status) == 0 &&
           status.st_mtim.tv_sec >= since - kClocks;
}

bool SpoolConversion::freeServantsOf(int32_t pid) const {
    constexpr int kPatienceMs = 100;
    try {
        Gateway gateway(m_options.segment.c_str());
        gateway.setTimeout(ipc::timeout(kPatienceMs), false);
        gateway.purgeChannelsOf(pid);
        return true;
    } catch (const TimeoutException&) {
        return false;
    } catch (const SharedMemoryDoesNotExistsException&) {
        return true;  // no daemon, no servants
    }
}

// One connection serves all workers; a daemon that was started anew has another segment.
std::shared_ptr<Session> SpoolConversion::session() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_session) m_session = std::make_shared<Session>(m_options.segment);
    return m_session;
}

void SpoolConversion::forget(const std::shared_ptr<Session>& session) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_session == session) m_session.reset();
}

WorkResult SpoolConversion::run(const SpoolObject& object) {
    std::shared_ptr<Session> used;
    try {
        used = session();
        return convert(object, *used);
    } catch (const NoDaemon& error) {
        forget(used);
        return {.kind = WorkResult::Kind::unreachable, .cause = error.what()};
    } catch (const NotAllowed& error) {
        return {.kind = WorkResult::Kind::unreachable, .cause = error.what()};
    }
}

WorkResult SpoolConversion::convert(const SpoolObject& object, Session& session) {
    const auto start = std::chrono::steady_clock::now();
    const std::string key = object.key(), place = m_results.newPlace();
    Request request;
    request.inputFile = object.path;
    request.outputPrefix = request.cachePrefix = place + kPrefix;
    request.writeMask = m_options.writeMask;
    request.needOptimize = m_options.needOptimize;
    request.tags = {0x0020, 0x000D, 0x0020, 0x000E, 0x0008, 0x0018};
    WorkResult result;
    bool isAway = false;
    try {
        const Outcome outcome = session.ask(request, m_stops);
        result.warnings = outcome.warnings;
        result.errorClass = outcome.kind;
        result.cause = outcome.text;
        if (outcome.givenUp) result.kind = WorkResult::Kind::unreachable;
        if (outcome.done) {
            takeIdentity(outcome.text, result);
            result.kind = object.isUnchanged() ? WorkResult::Kind::done : WorkResult::Kind::changed;
        }
        if (result.kind == WorkResult::Kind::done) {
            result.outputs = filesIn(place, m_results.path() + "/" + key);
            m_results.publish(place, key);
            isAway = true;
        }
    } catch (const NameTaken& error) {
        result = {.errorClass = ErrorClass::request, .cause = error.what()};
    } catch (...) {
        ResultsFolder::discard(place);
        throw;
    }
    if (!isAway) ResultsFolder::discard(place);
    result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return result;
}
