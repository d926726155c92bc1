#include "tools/spool/IncomingWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <stdexcept>

namespace {

constexpr uint32_t kEvents = IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_CREATE | IN_MODIFY | IN_CLOSE_WRITE;

std::optional<IncomingWatch::Event> meaningOf(uint32_t mask) {
    using Event = IncomingWatch::Event;
    if (mask & IN_Q_OVERFLOW) return Event::overflow;
    if (mask & IN_ISDIR) return std::nullopt;
    if (mask & IN_MOVED_TO) return Event::movedIn;
    if (mask & IN_CLOSE_WRITE) return Event::closed;
    if (mask & IN_CREATE) return Event::created;
    if (mask & IN_MODIFY) return Event::written;
    if (mask & (IN_MOVED_FROM | IN_DELETE)) return Event::gone;
    return std::nullopt;
}

}  // namespace

IncomingWatch::IncomingWatch(const std::string& folder)
    : m_descriptor(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (m_descriptor >= 0 &&
        inotify_add_watch(m_descriptor, folder.c_str(), kEvents | IN_ONLYDIR | IN_DONT_FOLLOW) >= 0)
        return;
    const std::string cause = std::strerror(errno);
    if (m_descriptor >= 0) close(m_descriptor);
    throw std::runtime_error(folder + " cannot be watched: " + cause);
}

IncomingWatch::~IncomingWatch() {
    close(m_descriptor);
}

std::vector<IncomingWatch::Entry> IncomingWatch::take() const {
    alignas(inotify_event) char buffer[65536];
    std::vector<Entry> entries;
    const ssize_t length = read(m_descriptor, buffer, sizeof buffer);
    for (ssize_t at = 0; at < length;) {
        const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
        at += static_cast<ssize_t>(sizeof *event + event->len);
        if (const auto meaning = meaningOf(event->mask))
            entries.push_back({*meaning, event->len > 0 ? event->name : ""});
    }
    return entries;
}
