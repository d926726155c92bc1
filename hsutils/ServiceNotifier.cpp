#include "hsutils/ServiceNotifier.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

std::string takeVariable(const char* name) {
    const char* value = getenv(name);
    std::string text = value ? value : "";
    unsetenv(name);
    return text;
}

/// 0 where the text is no positive number.
int64_t positive(const std::string& text) {
    int64_t number = 0;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    return parsed.ec == std::errc() && parsed.ptr == end && number > 0 ? number : 0;
}

}  // namespace

ServiceNotifier::ServiceNotifier() : m_address(takeVariable("NOTIFY_SOCKET")) {
    const int64_t watchdog = positive(takeVariable("WATCHDOG_USEC"));
    const std::string watched = takeVariable("WATCHDOG_PID");
    const bool fits = m_address.size() > 1 && m_address.size() < sizeof(sockaddr_un::sun_path);
    if (!fits || (m_address[0] != '/' && m_address[0] != '@')) m_address.clear();
    if (!m_address.empty() && m_address[0] == '@') m_address[0] = '\0';
    // A watchdog that was set for the process that started us is not ours to feed.
    if (watchdog > 0 && (watched.empty() || positive(watched) == getpid()))
        m_interval = std::chrono::microseconds(watchdog / 2);
}

bool ServiceNotifier::send(const std::string& message, int flags) const {
    if (m_address.empty()) return false;
    // A socket for each message: servants inherit none.
    const int file = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (file < 0) return false;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, m_address.data(), m_address.size());
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + m_address.size());
    const ssize_t sent = sendto(file, message.data(), message.size(), flags | MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&address), length);
    close(file);
    return sent == static_cast<ssize_t>(message.size());
}

void ServiceNotifier::ready(const std::string& status) {
    send("READY=1\nSTATUS=" + status, 0);
    m_lastPing = Clock::now();
}

void ServiceNotifier::stopping() {
    if (m_isStopping) return;
    m_isStopping = true;
    send("STOPPING=1\nSTATUS=stopping", MSG_DONTWAIT);
}

void ServiceNotifier::alive() {
    if (!m_interval || Clock::now() - m_lastPing < *m_interval) return;
    // A manager that is busy must not hold up the supervisor: what it does not take now is tried in the next
    // round.
    if (send("WATCHDOG=1", MSG_DONTWAIT)) m_lastPing = Clock::now();
}

std::chrono::milliseconds ServiceNotifier::pause(std::chrono::milliseconds longest) const {
    if (!m_interval) return longest;
    return std::min(longest, std::chrono::ceil<std::chrono::milliseconds>(*m_interval / 2));
}
