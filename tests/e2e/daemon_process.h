#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/eventually.h"
#include "tests/open_gateway.h"
#include "tests/temporary_folder.h"
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
    std::string log() const;
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

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);

/// One request with the usual switches; what a test does not set is a plain conversion.
struct TestRequest {
    std::string input;
    std::string output;
    std::string cache = output;
    bool verbose = false;
    bool dumponly = false;
    bool noCached = false;
    std::vector<unsigned short> tags;
    int tagsOnce = 0;
    std::vector<const char*> files;
    int writeMask = 4;  ///< raw pixels and the descriptor alone
    int specificFrame = 0;

    std::string send(Gateway& gateway);
    /// The text of the error answer; empty when there was none.
    std::string error(Gateway& gateway);
};
