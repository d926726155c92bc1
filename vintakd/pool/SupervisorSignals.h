#pragma once

#include <csignal>

/// Set to 1 by InterruptHandler; ends ServantPool::supervise().
extern volatile std::sig_atomic_t exitFlag;
void InterruptHandler(int signal);

/// Blocks the signals that the supervisor waits for. Called before any thread or child exists, so that none
/// is lost.
void blockSupervisorSignals();

/// The supervisor's signals (SIGINT, SIGTERM, SIGCHLD) as a file to wait for.
class SupervisorSignals {
public:
    SupervisorSignals() = default;
    ~SupervisorSignals();
    SupervisorSignals(const SupervisorSignals&) = delete;
    SupervisorSignals& operator=(const SupervisorSignals&) = delete;

    /// Blocks the signals and opens the file, once. Throws std::runtime_error.
    void open();
    /// Readable when a signal has come; -1 before open().
    int file() const { return m_file; }
    /// Takes what has come: SIGINT and SIGTERM go to InterruptHandler, SIGCHLD was only to wake.
    void read() const;
    /// In a new servant: its signals do what they do in any process.
    void leave();

private:
    int m_file = -1;
};
