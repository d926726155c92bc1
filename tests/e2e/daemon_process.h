#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "vintakd/vintakd_if.h"

/// A folder of this test alone, removed with the object.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// The path of @p name in it.
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

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
    explicit DaemonProcess(const std::vector<std::string>& arguments = {"--servers", "1"});
    ~DaemonProcess();
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;

    /// Sends @p signal and waits; the exit status, -1 when a signal ended it.
    int stop(int signal);
    /// Starts it again with the same folders.
    void start();

    Gateway& gateway() { return *m_gateway; }
    pid_t pid() const { return m_pid; }
    /// The pid of the servant of channel 0, as the table has it.
    int servantPid();
    std::string log() const;
    const std::string& segment() const { return m_segment; }
    std::vector<std::string> environment() const;
    const TemporaryFolder& folder() const { return m_folder; }

private:
    TemporaryFolder m_folder;
    std::string m_segment;
    std::vector<std::string> m_arguments;
    pid_t m_pid = 0;
    std::unique_ptr<Gateway> m_gateway;
};

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);

/// Waits for something that has to come true; the limit only ends a failing test.
bool eventually(const std::function<bool()>& condition);

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
