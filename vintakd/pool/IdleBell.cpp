#include "vintakd/pool/IdleBell.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

IdleBell::IdleBell() : m_file(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (m_file < 0) throw std::runtime_error(std::string("no eventfd: ") + std::strerror(errno));
}

IdleBell::~IdleBell() {
    close(m_file);
}

bool IdleBell::stop() {
    m_isUp[0] = false;
    eventfd_t rings = 0;
    return eventfd_read(m_file, &rings) == 0;
}

void IdleBell::ring() {
    if (m_isUp[0] && m_isUp[0].exchange(false)) (void)eventfd_write(m_file, 1);
}
