#include "tests/fault/servantsignal.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>

namespace {

/// The parent's pid; 0 when there is no such process.
pid_t parentOf(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("PPid:")) return std::stoi(line.substr(5));
    }
    return 0;
}

}  // namespace

pid_t signalServant(DaemonProcess& daemon, size_t channel, int signal) {
    const pid_t pid = daemon.servantPid(channel);
    if (pid <= 0) return 0;
    const auto descriptor = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    if (descriptor < 0) return 0;
    const bool sent =
        parentOf(pid) == daemon.pid() && syscall(SYS_pidfd_send_signal, descriptor, signal, nullptr, 0) == 0;
    close(descriptor);
    return sent ? pid : 0;
}

bool allFree(DaemonProcess& daemon, size_t channels) {
    for (size_t i = 0; i < channels; ++i) {
        if (daemon.servantPid(i) == 0) return false;
        if (daemon.gateway().state(i) != ChannelState::free) return false;
    }
    return true;
}

size_t countInLog(const DaemonProcess& daemon, const std::string& text) {
    const std::string log = daemon.log();
    size_t count = 0;
    for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + text.size()))
        ++count;
    return count;
}

void setChannelTimeouts(DaemonProcess& daemon, int milliseconds) {
    daemon.gateway().setTimeout(milliseconds, true);
    daemon.gateway().setTimeout(20000, false);
    // A servant reads the time-out before it waits for the next message.
    std::vector<size_t> reserved;
    for (size_t i = 0; i < daemon.gateway().channelCount(); ++i) {
        reserved.push_back(daemon.gateway().reserveChannel());
    }
    for (const size_t index : reserved)
        daemon.gateway().releaseChannel(index);
}
