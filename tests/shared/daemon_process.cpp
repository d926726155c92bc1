#include "tests/shared/daemon_process.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <atomic>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "hsutils/processstat.h"

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

}  // namespace

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

DaemonProcess::DaemonProcess(const std::vector<std::string>& arguments, std::function<void()> beforeStart)
    : m_segment(uniqueSegment()), m_arguments(arguments), m_beforeStart(std::move(beforeStart)) {
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
        // Without an output prefix the files of a request lie where the daemon does.
        if (chdir(m_folder.path().c_str()) != 0) _exit(126);
        if (m_beforeStart) m_beforeStart();
        const std::vector<std::string> variables = environment();
        become(VINTAKD_BINARY, m_arguments, variables);
    }
    const bool ready = eventually([this] {
        try {
            m_gateway = std::make_unique<OpenGateway>(m_segment.c_str());
            m_gateway->setTimeout(1000, false);
            return m_gateway->daemonLives() && vintakd::ping(*m_gateway);
        } catch (const SharedMemoryDoesNotExistsException&) {
            return false;
        } catch (const ConnectionTimeoutException&) {  // the segment of a daemon that was killed
            return false;
        }
    });
    if (!ready) throw std::runtime_error("the daemon did not start: " + log());
    m_gateway->setTimeout(20000, false);
}

int DaemonProcess::stop(int signal) {
    kill(m_pid, signal);
    const int status = exitStatus(m_pid);
    m_pid = 0;
    return status;
}

pid_t DaemonProcess::signalServant(int signal, size_t channel) {
    const pid_t pid = servantPid(channel);
    const auto descriptor = pid <= 0 ? -1 : static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    if (descriptor < 0) return 0;
    // What the descriptor stands for is ours when it is the daemon's child; it may end while it is looked at.
    char state = 0;
    pid_t parent = 0;
    std::istringstream(processStat(pid)) >> state >> parent;
    const bool ours = parent == m_pid;
    const bool sent = ours && syscall(SYS_pidfd_send_signal, descriptor, signal, nullptr, 0) == 0;
    close(descriptor);
    return sent ? pid : 0;
}

bool DaemonProcess::allFree() {
    for (size_t i = 0; i < m_gateway->channelCount(); ++i)
        if (servantPid(i) == 0 || m_gateway->state(i) != ChannelState::free) return false;
    return true;
}

void DaemonProcess::setChannelTimeouts(int milliseconds) {
    m_gateway->setTimeout(milliseconds, true);
    m_gateway->setTimeout(20000, false);
    // A servant reads the time-out before it waits for the next message.
    std::vector<size_t> reserved;
    for (size_t i = 0; i < m_gateway->channelCount(); ++i)
        reserved.push_back(m_gateway->reserveChannel());
    for (const size_t index : reserved)
        m_gateway->releaseChannel(index);
}

size_t DaemonProcess::countInLog(const std::string& text) const {
    const std::string whole = log();
    size_t count = 0;
    for (size_t at = whole.find(text); at != std::string::npos; at = whole.find(text, at + text.size()))
        ++count;
    return count;
}

std::string TestRequest::send(Gateway& gateway) const {
    const std::string& cached = cache.empty() ? output : cache;
    return vintakd::vintak(gateway, input.c_str(), output.c_str(), cached.c_str(), verbose, dumponly, false,
                           true, noCached, static_cast<int>(tags.size() / 2), tagsOnce, tags.data(),
                           static_cast<int>(files.size()), const_cast<const char**>(files.data()), writeMask,
                           0, specificFrame);
}

std::string TestRequest::error(Gateway& gateway) const {
    try {
        send(gateway);
        return "";
    } catch (const VintakdErrorException& error) {
        return error.text();
    }
}

std::string failureOf(const std::function<void()>& call) {
    try {
        call();
        return "";
    } catch (const TimeoutException&) {
        return "time-out";
    } catch (const ConnectionTimeoutException&) {
        return "no channel";
    } catch (const ipc::UserException&) {
        return "error notice";
    } catch (const ipc::CommunicationMismatchException&) {
        return "clash";
    }
}

RunningProgram::RunningProgram(const std::string& program, const std::vector<std::string>& arguments,
                               const std::vector<std::string>& environment)
    : m_pid(fork()) {
    if (m_pid != 0) return;
    if (!freopen("/dev/null", "w", stderr)) _exit(126);
    become(program, arguments, environment);
}

int RunningProgram::stop(int signal) {
    kill(m_pid, signal);
    return exitStatus(std::exchange(m_pid, 0));
}
