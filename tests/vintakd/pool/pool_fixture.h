#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "tests/shared/open_gateway.h"
#include "tests/vintakd/ipc/segment_fixture.h"
#include "vintakd/ipc/Gateway.h"
#include "vintakd/ipc/ipcexceptions.h"
#include "vintakd/pool/GatewaySupervisor.h"
#include "vintakd/pool/ServantLoop.h"
#include "vintakd/pool/SpinLockChecker.h"

/// Does what the client's message says, and says what became of it: an echo where it knows no such order.
class ObedientServant : public Servant {
public:
    void serve(ipc::Channel& channel) override {
        const ipc::Message message = receiveRequest(channel);
        const std::string command(message.getPointer(), message.getSize());
        servantduty::name(command);
        const std::string answer = obey(command);
        channel.send(answer.data(), answer.size());
    }

private:
    static std::string obey(const std::string& command) {
        if (command == "crash") abort();
        if (command == "exit") _exit(7);
        if (command == "throw") throw std::logic_error("as told");
        if (command == "manager") return getenv("NOTIFY_SOCKET") ? "one" : "none";
        if (command == "sleep") std::this_thread::sleep_for(std::chrono::hours(1));
        if (command == "exec") execl("/bin/true", "true", nullptr);
        if (command == "socket") return outcome(socket(AF_UNIX, SOCK_STREAM, 0));
        if (command == "kill") return outcome(kill(getppid(), 0));
        if (command == "descriptors") return outcome(openMany(100));
        if (command == "memory") {
            void* memory = mmap(nullptr, size_t{2} << 30, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            return outcome(memory == MAP_FAILED ? -1 : 0);
        }
        if (command == "spin on a frame") servantduty::kind(RequestKind::convert);
        for (volatile unsigned i = 0; command.starts_with("spin");)
            i = i + 1;
        return command;
    }

    static int openMany(int count) {
        int last = 0;
        for (int i = 0; i < count && last >= 0; ++i)
            last = open("/dev/null", O_RDONLY);
        return last;
    }

    static std::string outcome(int result) { return result >= 0 ? "done" : strerrorname_np(errno); }
};

class PoolTest : public testing::Test {
protected:
    void start(uint64_t channels, int timeoutMilliseconds = 20000,
               const ServantLimits& limits = ServantLimits::none()) {
        launch(channels, timeoutMilliseconds, limits);
        ASSERT_TRUE(eventually([this] { return attach(); }));
        m_gateway->setTimeout(10000, false);
        const size_t first = m_gateway->reserveChannel();  // waits for the pool to stand
        m_gateway->releaseChannel(first);
    }

    /// Starts the pool without waiting for anything.
    void launch(uint64_t channels, int timeoutMilliseconds = 20000,
                const ServantLimits& limits = ServantLimits::none()) {
        m_daemon = fork();
        if (m_daemon == 0) runDaemon(channels, timeoutMilliseconds, limits);
    }

    bool attach() {
        try {
            m_gateway.emplace(m_name.c_str());
            return true;
        } catch (const SharedMemoryDoesNotExistsException&) {
            return false;
        }
    }

    ~PoolTest() override {
        if (m_daemon > 0) stop(SIGTERM);
        close(m_log);
    }

    int stop(int signal) {
        kill(m_daemon, signal);
        int status = 0;
        waitpid(m_daemon, &status, 0);
        m_daemon = 0;
        return status;
    }

    std::string ask(const std::string& command) {
        ReservedChannel reserved(*m_gateway);
        ipc::Channel& channel = m_gateway->getChannel(reserved.index());
        channel.send(command.data(), command.size());
        const ipc::Message answer = channel.recv();
        return {answer.getPointer(), answer.getSize()};
    }

    /// What the daemon and its servants logged so far.
    std::string log() const {
        struct stat status {};
        fstat(m_log, &status);
        std::string text(static_cast<size_t>(status.st_size), '\0');
        text.resize(static_cast<size_t>(pread(m_log, text.data(), text.size(), 0)));
        return text;
    }

    SegmentName m_name;
    std::string m_metricsFile;  ///< where the pool writes its figures; empty: nowhere
    int m_log = memfd_create("log", MFD_CLOEXEC);
    pid_t m_daemon = 0;
    std::optional<OpenGateway> m_gateway;

private:
    [[noreturn]] void runDaemon(uint64_t channels, int timeoutMilliseconds, const ServantLimits& limits) {
        dup2(m_log, STDERR_FILENO);
        blockSupervisorSignals();
        {
            GatewaySupervisor<ObedientServant> pool(m_name.c_str(), segmentSize(channels), kTestChannelSize,
                                                    channels, true);
            pool.setTimeout(timeoutMilliseconds, true);
            pool.setLimits(limits);
            pool.setMetricsFile(m_metricsFile);
            pool.startServers();
            const SpinLockChecker checker(pool);
            pool.supervise();
            pool.stopServers();
        }
        _exit(0);
    }
};
