#include "daemon_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

#include "vintakd/ipcexceptions.h"

namespace {

std::string uniqueSegment() {
    static std::atomic<int> counter{0};
    return "vintakd_e2e_" + std::to_string(getpid()) + "_" + std::to_string(counter++);
}

[[noreturn]] void become(const std::string& program, const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment) {
    std::vector<char*> words{const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments)
        words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    for (const std::string& variable : environment)
        putenv(const_cast<char*>(variable.c_str()));
    execv(program.c_str(), words.data());
    _exit(127);
}

int exitStatus(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// A gateway with access to its table.
class OpenGateway : public Gateway {
public:
    using Gateway::Gateway;
    using GatewayBase::entry;
};

}  // namespace

TemporaryFolder::TemporaryFolder() {
    std::string pattern = std::filesystem::temp_directory_path().string() + "/vintakd_e2e_XXXXXX";
    if (!mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder");
    m_path = pattern;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

bool eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 3000; ++i) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

ProgramResult runProgram(const std::string& program, const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment) {
    const TemporaryFolder folder;
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(open((folder / "out").c_str(), O_WRONLY | O_CREAT, 0600), STDOUT_FILENO);
        dup2(open((folder / "err").c_str(), O_WRONLY | O_CREAT, 0600), STDERR_FILENO);
        become(program, arguments, environment);
    }
    ProgramResult result;
    result.status = exitStatus(pid);
    result.output = readFile(folder / "out");
    result.errors = readFile(folder / "err");
    return result;
}

DaemonProcess::DaemonProcess(const std::vector<std::string>& arguments)
    : m_segment(uniqueSegment()), m_arguments(arguments) {
    start();
}

DaemonProcess::~DaemonProcess() {
    if (m_pid > 0) stop(SIGTERM);
    GatewayBase::remove(m_segment.c_str());
}

std::vector<std::string> DaemonProcess::environment() const {
    return {"RUN=" + m_folder.path(), "TMP=" + m_folder.path(), "VINTAKD_SEGMENT=" + m_segment,
            "VINTAKD_TRACE_SWITCH=-"};
}

void DaemonProcess::start() {
    m_gateway.reset();
    m_pid = fork();
    if (m_pid == 0) {
        dup2(open((m_folder / "log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), STDERR_FILENO);
        const std::vector<std::string> variables = environment();
        become(VINTAKD_BINARY, m_arguments, variables);
    }
    const bool ready = eventually([this] {
        try {
            m_gateway = std::make_unique<OpenGateway>(m_segment.c_str());
            m_gateway->setTimeout(20000, false);
            return m_gateway->daemonLives() && vintakd::ping(*m_gateway);
        } catch (const SharedMemoryDoesNotExistsException&) {
            return false;
        }
    });
    if (!ready) throw std::runtime_error("the daemon did not start: " + log());
}

int DaemonProcess::stop(int signal) {
    kill(m_pid, signal);
    const int status = exitStatus(m_pid);
    m_pid = 0;
    return status;
}

int DaemonProcess::servantPid() {
    return static_cast<OpenGateway&>(*m_gateway).entry(0).servantPid;
}

std::string DaemonProcess::log() const {
    return readFile(m_folder / "log");
}

std::string TestRequest::send(Gateway& gateway) {
    if (cache.empty()) cache = output;
    return vintakd::vintak(gateway, input.c_str(), output.c_str(), cache.c_str(), verbose, dumponly, false,
                           true, noCached, static_cast<int>(tags.size() / 2), tagsOnce, tags.data(),
                           static_cast<int>(files.size()), files.data(), writeMask, 0, specificFrame);
}

std::string TestRequest::error(Gateway& gateway) {
    try {
        send(gateway);
        return "";
    } catch (const VintakdErrorException& error) {
        return error.text();
    }
}
