#include "vintakd/pool/ReadyPipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

ReadyPipe::ReadyPipe() {
    if (pipe2(m_ends, O_CLOEXEC | O_NONBLOCK) != 0)
        throw std::runtime_error(std::string("no pipe for the servants' reports: ") + std::strerror(errno));
}

ReadyPipe::~ReadyPipe() {
    for (const int end : m_ends) {
        if (end >= 0) close(end);
    }
}

std::optional<ReadyPipe::Report> ReadyPipe::read() const {
    Report report{};
    if (::read(m_ends[0], &report, sizeof report) != static_cast<ssize_t>(sizeof report)) return {};
    return report;
}

void ReadyPipe::keepOnlyWriting() {
    close(m_ends[0]);
    m_ends[0] = -1;
}

void ReadyPipe::report(size_t index) {
    const Report report{static_cast<uint32_t>(index), getpid()};
    // A pipe that is full of other servants' reports empties as the supervisor reads it.
    while (write(m_ends[1], &report, sizeof report) < 0 && (errno == EAGAIN || errno == EINTR))
        usleep(1000);
    close(m_ends[1]);
    m_ends[1] = -1;
}
