#pragma once

#include <string>

/// The value of the environment variable "RUN" (empty when not set), "/" and `fileName`.
std::string getRunPath(const char* fileName);

/// Tries to write-lock the whole file; returns what fcntl returns and never waits.
int lockfile(int descriptor);

/// The guard that keeps one daemon per run directory: a lock file that is locked for as long as the process
/// lives, and a pid file beside it. The owner deletes both when the guard goes.
class DaemonInfo {
public:
    /// With `checkOnly` only looks whether a daemon runs (both files exist), else tries to become it. A lock
    /// that fails for another reason than another holder leaves a guard that is neither owner nor running.
    DaemonInfo(std::string pidFilePath, std::string lockFilePath, bool checkOnly);
    ~DaemonInfo();
    DaemonInfo(const DaemonInfo&) = delete;
    DaemonInfo& operator=(const DaemonInfo&) = delete;

    /// The running daemon's pid; 0 when there is none or its pid file cannot be read.
    int getDeamonPid() const { return m_daemonPid; }
    bool isDeamonRunning() const { return m_running; }
    /// Which of the files the daemon has to do without, and why; empty when it has both.
    const std::string& problem() const { return m_problem; }

private:
    void look();
    void takeOver();
    int openAndLock();
    void readPid();

    std::string m_pidFilePath;
    std::string m_lockFilePath;
    bool m_owner = false;
    int m_daemonPid = 0;
    std::string m_problem;
    bool m_running = false;
};

/// The guard of "vintakd.pid" and "vintakd.lock" in the run directory.
class VintakDaemonInfo : public DaemonInfo {
public:
    explicit VintakDaemonInfo(bool checkOnly)
        : DaemonInfo(getRunPath("vintakd.pid"), getRunPath("vintakd.lock"), checkOnly) {}
};
