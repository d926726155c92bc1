#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "hsutils/Utils.h"
#include "vintakd/ipc/Gateway.h"
#include "vintakd/ipc/ipcexceptions.h"
#include "vintakd/pool/GatewaySupervisor.h"

/// A daemon of its own for one benchmark: a process with a pool of T, ended with the object.
template <class T>
class PoolProcess {
public:
    explicit PoolProcess(uint64_t servants)
        : m_name("vintakd_bench_" + std::to_string(getpid())), m_pid(fork()) {
        if (m_pid == 0) run(servants);
        while (!m_gateway) {
            try {
                m_gateway = std::make_unique<Gateway>(m_name.c_str());
            } catch (const SharedMemoryDoesNotExistsException&) {
                mymilisleep(5);
            }
        }
        m_gateway->releaseChannel(m_gateway->reserveChannel());  // waits until the pool stands
    }
    ~PoolProcess() {
        kill(m_pid, SIGTERM);
        waitpid(m_pid, nullptr, 0);
    }
    PoolProcess(const PoolProcess&) = delete;
    PoolProcess& operator=(const PoolProcess&) = delete;

    Gateway& gateway() { return *m_gateway; }
    const char* name() const { return m_name.c_str(); }
    pid_t pid() const { return m_pid; }

private:
    [[noreturn]] void run(uint64_t servants) {
        constexpr uint64_t kChannelSize = 16384;
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
        blockSupervisorSignals();
        {
            const uint64_t size = GatewayBase::getFirstChannelOffset(servants) + servants * kChannelSize;
            GatewaySupervisor<T> pool(m_name.c_str(), size, kChannelSize, servants, true);
            pool.setTimeout(20000, true);
            pool.startServers();
            pool.supervise();
            pool.stopServers();
            pool.remove();
        }
        _exit(0);
    }

    std::string m_name;
    pid_t m_pid;
    std::unique_ptr<Gateway> m_gateway;
};
