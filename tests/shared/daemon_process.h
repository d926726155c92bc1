#pragma once

#include <signal.h>
#include <unistd.h>

#include <memory>

#include "tests/shared/open_gateway.h"
#include "tests/shared/testing.h"
#include "vintakd/ipc/ipcexceptions.h"
#include "vintakd/vintakd_if.h"

/// How a program ended, and what it printed.
struct ProgramResult {
    int status = -1;  ///< exit status, -1 when a signal ended it
    std::string output;
    std::string errors;
};

/// Runs a program to its end.
ProgramResult runProgram(const std::string& program, const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment = {});

/// A program that runs beside the test, ended with the object. What it says on standard error is nobody's.
class RunningProgram {
public:
    RunningProgram(const std::string& program, const std::vector<std::string>& arguments,
                   const std::vector<std::string>& environment);
    ~RunningProgram() {
        if (m_pid > 0) stop(SIGKILL);
    }
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    /// The exit status, -1 when a signal ended it.
    int stop(int signal);
    /// The same when it ends of its own.
    int wait() { return stop(0); }

private:
    pid_t m_pid;
};

/// The real daemon with a run directory, a segment and a log of its own; stopped with the object.
class DaemonProcess {
public:
    /// `beforeStart` runs in the daemon's process before its program does.
    explicit DaemonProcess(const std::vector<std::string>& arguments = {"--servers", "1"},
                           std::function<void()> beforeStart = nullptr);
    ~DaemonProcess();
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;

    /// Sends `signal` and waits; the exit status, -1 when a signal ended it.
    int stop(int signal);
    /// Starts it again with the same folders.
    void start();

    OpenGateway& gateway() { return *m_gateway; }
    pid_t pid() const { return m_pid; }
    /// The pid of the servant of a channel, as the table has it; 0 while it has none that is ready.
    int servantPid(size_t channel = 0) { return m_gateway->servant(channel); }
    /// Sends `signal` to the servant of a channel: to no other process, whatever has become of the servant's
    /// pid. The servant's pid; 0 when there is none to be had.
    pid_t signalServant(int signal, size_t channel = 0);
    /// Whether each channel has a servant and is free.
    bool allFree();
    /// Gives every channel this time-out in place of the daemon's, and makes the idle servants take note.
    void setChannelTimeouts(int milliseconds);

    std::string log() const { return readFile(m_folder / "log"); }
    /// How often `text` occurs in the log.
    size_t countInLog(const std::string& text) const;
    const std::string& segment() const { return m_segment; }
    std::vector<std::string> environment() const;
    const TemporaryFolder& folder() const { return m_folder; }

private:
    TemporaryFolder m_folder;
    std::string m_segment;
    std::vector<std::string> m_arguments;
    std::function<void()> m_beforeStart;
    pid_t m_pid = 0;
    std::unique_ptr<OpenGateway> m_gateway;
};

/// One request with the usual switches; what a test does not set is a plain conversion.
struct TestRequest {
    std::string input{};
    std::string output{};
    std::string cache = output;
    bool verbose = false;
    bool dumponly = false;
    bool noCached = false;
    std::vector<unsigned short> tags{};
    int tagsOnce = 0;
    std::vector<const char*> files{};
    int writeMask = 4;  ///< raw pixels and the descriptor alone
    int specificFrame = 0;

    std::string send(Gateway& gateway) const;
    /// The text of the error answer; empty when there was none.
    std::string error(Gateway& gateway) const;
};

/// Makes a client's call; the name of the exception by which the exchange failed, empty when it did not. What
/// else the call throws goes on.
std::string failureOf(const std::function<void()>& call);
