#include "tools/vintak/SpoolConversion.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace {

/// Below the results, where nobody looks who does not look for hidden names.
constexpr const char* kPartial = "/.partial/";
constexpr const char* kPrefix = "/object";

void removeAll(const std::string& path) {
    std::error_code error;
    fs::remove_all(path, error);
    if (error) throw std::runtime_error(path + " cannot be removed: " + error.message());
}

/// An instance UID as it may stand in an object; anything else is not passed on as one.
bool isUid(const std::string& text) {
    constexpr size_t kLongest = 64;
    return !text.empty() && text.size() <= kLongest &&
           text.find_first_not_of("0123456789.") == std::string::npos;
}

/// Where an object's results are written: a name of one level, the same each time, so that what a try before
/// has left is found and removed.
std::string partialName(const std::string& key) {
    if (key.find('/') == std::string::npos) return key;
    std::string name = key;
    std::replace(name.begin(), name.end(), '/', '_');
    constexpr size_t kLongest = 200;
    char hash[24];
    (void)snprintf(hash, sizeof hash, "%016zx_", std::hash<std::string>{}(key));
    return hash + name.substr(name.size() > kLongest ? name.size() - kLongest : 0);
}

std::vector<SpoolOutput> filesIn(const std::string& folder, const std::string& shownAs) {
    std::vector<SpoolOutput> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder))
        files.push_back({shownAs + "/" + entry.path().filename().string(), entry.file_size()});
    std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) { return a.path < b.path; });
    return files;
}

}  // namespace

SpoolConversion::SpoolConversion(SpoolConversionOptions options, std::function<bool()> stops)
    : m_options(std::move(options)), m_stops(std::move(stops)) {
    std::error_code error;
    fs::create_directories(m_options.results + kPartial, error);
    if (error) throw std::runtime_error(m_options.results + kPartial + ": " + error.message());
}

// In an archive "NAME" may be a folder beside the object "NAME.dcm", and have results in it.
std::string SpoolConversion::keyFor(const SpoolObject& object) const {
    return m_options.keepNames ? object.name : object.key();
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

WorkResult SpoolConversion::convert(const SpoolObject& object, Session& session) const {
    const auto start = std::chrono::steady_clock::now();
    const std::string key = keyFor(object), place = m_options.results + kPartial + partialName(key);
    removeAll(place);
    fs::create_directory(place);
    Request request;
    request.inputFile = object.path;
    request.outputPrefix = request.cachePrefix = place + kPrefix;
    request.writeMask = m_options.writeMask;
    request.needOptimize = m_options.needOptimize;
    WorkResult result;
    try {
        const Outcome outcome = session.ask(request, m_stops);
        result.warnings = outcome.warnings;
        result.errorClass = outcome.kind;
        result.cause = outcome.text;
        if (outcome.givenUp) result.kind = WorkResult::Kind::unreachable;
        if (outcome.done) {
            if (m_options.identify) readIdentity(object, session, result);
            result.kind = object.isUnchanged() ? WorkResult::Kind::done : WorkResult::Kind::changed;
        }
    } catch (...) {
        removeAll(place);
        throw;
    }
    if (result.kind == WorkResult::Kind::done) {
        result.outputs = filesIn(place, m_options.results + "/" + key);
        publish(place, key);
    }
    removeAll(place);
    result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return result;
}

void SpoolConversion::readIdentity(const SpoolObject& object, Session& session, WorkResult& result) const {
    Request request;
    request.inputFile = object.path;
    request.dumponly = true;
    request.tags = {0x0020, 0x000D, 0x0020, 0x000E, 0x0008, 0x0018};
    const Outcome outcome = session.ask(request, m_stops);
    if (!outcome.done) return;
    std::istringstream values(outcome.text);
    for (std::string* uid : {&result.study, &result.series, &result.object}) {
        std::getline(values, *uid, ';');
        uid->erase(uid->find_last_not_of(std::string(" \0\n", 3)) + 1);
        if (!isUid(*uid)) uid->clear();
    }
}

// The folder of an earlier version changes places with the new one, so that there is no moment without any.
void SpoolConversion::publish(const std::string& from, const std::string& key) const {
    const std::string to = m_options.results + "/" + key;
    if (m_options.sync) {
        const int folder = open(from.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        const bool synced = folder >= 0 && syncfs(folder) == 0;
        if (folder >= 0) close(folder);
        if (!synced) throw std::runtime_error(from + ": " + std::strerror(errno));
    }
    if (key.find('/') != std::string::npos) fs::create_directories(fs::path(to).parent_path());
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return;
    if (errno == EEXIST && renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_EXCHANGE) == 0)
        return;
    throw std::runtime_error(to + ": " + std::strerror(errno));
}
