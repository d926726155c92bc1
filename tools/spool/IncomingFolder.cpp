#include "tools/spool/IncomingFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <utility>

namespace {

/// Between two looks at a folder of which the kernel told nothing: on a network's file system it does not see
/// what other hosts do.
constexpr std::chrono::seconds kRound{30};
/// While something is there that has to settle.
constexpr std::chrono::seconds kShortRound{1};
/// Names being written that are kept in mind; beyond that the time of the last writing decides.
constexpr size_t kMostOpen = 10000;

double secondsSince(const timespec& time) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<double>(now.tv_sec - time.tv_sec) +
           static_cast<double>(now.tv_nsec - time.tv_nsec) / 1e9;
}

}  // namespace

IncomingFolder::IncomingFolder(std::string path, std::chrono::duration<double> settle)
    : m_path(std::move(path)), m_settle(settle), m_watch(m_path) {
    scan();
}

bool IncomingFolder::isTemporary(const std::string& name) {
    return name.starts_with('.') || name.ends_with(".tmp") || name.ends_with(".part");
}

void IncomingFolder::update() {
    for (auto entries = m_watch.take(); !entries.empty(); entries = m_watch.take())
        for (const IncomingWatch::Entry& entry : entries)
            note(entry);
    settleMade();
    settleClosed();
    const auto quiet = Clock::now() - m_scannedAt;
    const bool isUsedUp = m_backlog.isCut() && m_backlog.isEmpty();
    if (isUsedUp || quiet > kRound || (m_unseen && !m_backlog.isCut() && quiet > kShortRound)) scan();
}

void IncomingFolder::note(const IncomingWatch::Entry& entry) {
    if (entry.event == IncomingWatch::Event::overflow) {
        m_open.clear();
        m_made.clear();
        m_unseen = true;
        return;
    }
    if (isTemporary(entry.name)) return;
    m_made.erase(entry.name);
    switch (entry.event) {
        case IncomingWatch::Event::movedIn:
            m_open.erase(entry.name);
            arrived(entry.name);
            break;
        case IncomingWatch::Event::created:
            created(entry.name);
            break;
        case IncomingWatch::Event::written:
            open(entry.name, std::nullopt);
            break;
        case IncomingWatch::Event::closed:
            open(entry.name, Clock::now());
            break;
        case IncomingWatch::Event::gone:
            m_open.erase(entry.name);
            if (m_backlog.holds(entry.name)) taken(entry.name);
            break;
        case IncomingWatch::Event::overflow:
            break;
    }
}

// A plain file is open to whoever made it. A link, a pipe and the like are never closed: they are as they
// will be.
void IncomingFolder::created(const std::string& name) {
    struct stat status {};
    if (lstat((m_path + "/" + name).c_str(), &status) != 0) return;
    if (!S_ISREG(status.st_mode) || status.st_nlink > 1) return arrived(name);
    open(name, std::nullopt);
    m_made.insert(name);
}

// What has something in it that nobody was seen writing was linked there (and lost its other name, or never
// had one): nobody will ever close it. Who has just begun to write is heard of before the settling is over.
void IncomingFolder::settleMade() {
    for (const std::string& name : std::exchange(m_made, {})) {
        struct stat status {};
        if (lstat((m_path + "/" + name).c_str(), &status) == 0 && status.st_size > 0)
            open(name, Clock::now());
    }
}

void IncomingFolder::open(const std::string& name, std::optional<Clock::time_point> closed) {
    if (m_open.size() < kMostOpen || m_open.contains(name)) m_open[name] = closed;
}

void IncomingFolder::settleClosed() {
    std::vector<std::string> settled;
    for (const auto& [name, closed] : m_open)
        if (closed && Clock::now() - *closed >= m_settle) settled.push_back(name);
    for (const std::string& name : settled) {
        m_open.erase(name);
        arrived(name);
    }
}

void IncomingFolder::arrived(const std::string& name) {
    struct stat status {};
    if (lstat((m_path + "/" + name).c_str(), &status) != 0 || S_ISDIR(status.st_mode)) return;
    if (!m_backlog.holds(name)) ++m_count;
    m_backlog.add(name, status.st_ctim);
}

void IncomingFolder::taken(const std::string& name) {
    if (m_backlog.holds(name) && m_count > 0) --m_count;
    m_backlog.remove(name);
}

std::optional<timespec> IncomingFolder::oldestSince() const {
    if (m_backlog.isEmpty()) return std::nullopt;
    return m_backlog.names().begin()->since;
}

void IncomingFolder::scan() {
    const int file = ::open(m_path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(file < 0 ? nullptr : fdopendir(file), closedir);
    if (!folder) {
        const std::string cause = std::strerror(errno);
        if (file >= 0) close(file);
        throw std::runtime_error(m_path + ": " + cause);
    }
    Backlog before = std::exchange(m_backlog, Backlog());
    m_count = 0;
    m_unseen = false;
    while (const dirent* entry = readdir(folder.get())) {
        struct stat status {};
        const std::string name = entry->d_name;
        if (isTemporary(name) || entry->d_type == DT_DIR || m_open.contains(name)) continue;
        if (fstatat(dirfd(folder.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
        if (S_ISDIR(status.st_mode)) continue;
        // Of what is known how it came stands in the former backlog.
        if (!before.holds(name) && secondsSince(status.st_ctim) < kUnseen * m_settle.count()) {
            m_unseen = true;
            continue;
        }
        ++m_count;
        m_backlog.add(name, status.st_ctim);
    }
    m_scannedAt = Clock::now();
}
