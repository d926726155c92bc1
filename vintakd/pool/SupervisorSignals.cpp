#include "vintakd/pool/SupervisorSignals.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

volatile std::sig_atomic_t exitFlag = 0;

void InterruptHandler(int) {
    exitFlag = 1;
}

namespace {

sigset_t supervisorSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGCHLD);
    return signals;
}

void setDefaultAction(int signal) {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigaction(signal, &action, nullptr);
}

}  // namespace

void blockSupervisorSignals() {
    setDefaultAction(SIGCHLD);  // an inherited SIG_IGN would reap our children behind our back
    const sigset_t signals = supervisorSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

SupervisorSignals::~SupervisorSignals() {
    if (m_file >= 0) close(m_file);
}

void SupervisorSignals::open() {
    blockSupervisorSignals();
    if (m_file >= 0) return;
    const sigset_t signals = supervisorSignals();
    m_file = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (m_file < 0) throw std::runtime_error(std::string("no signal file: ") + std::strerror(errno));
}

void SupervisorSignals::read() const {
    signalfd_siginfo info{};
    while (::read(m_file, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        if (info.ssi_signo == SIGINT || info.ssi_signo == SIGTERM)
            InterruptHandler(static_cast<int>(info.ssi_signo));
    }
}

void SupervisorSignals::leave() {
    for (const int signal : {SIGINT, SIGTERM})
        setDefaultAction(signal);
    const sigset_t signals = supervisorSignals();
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    if (m_file >= 0) close(m_file);
    m_file = -1;
}
