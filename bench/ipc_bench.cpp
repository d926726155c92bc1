// The shared-memory exchange beside what the system offers: a ping (reservation, check, request, answer,
// release) against a bare ping-pong over a Unix-domain socket between two processes, each on a quiet machine
// and with every processor busy with something else, and the throughput of long messages.

#include <benchmark/benchmark.h>
#include <sys/prctl.h>
#include <sys/socket.h>

#include <cstring>
#include <vector>

#include "bench/pool_process.h"
#include "vintakd/pool/ServantLoop.h"
#include "vintakd/vintakd_if.h"

namespace {

/// Answers "PONG" to a ping and "ok" to anything else.
class AnsweringServant : public Servant {
public:
    void serve(ipc::Channel& channel) override {
        const ipc::Message message = receiveRequest(channel);
        if (message.getSize() >= 4 && std::memcmp(message.getPointer(), "PING", 4) == 0) {
            channel.send("PONG", 4);
            return;
        }
        channel.send("ok", 2);
    }
};

/// Keeps every processor busy, as the work of others would.
class BusyProcessors {
public:
    explicit BusyProcessors(bool busy) {
        const long count = busy ? sysconf(_SC_NPROCESSORS_ONLN) : 0;
        for (long i = 0; i < count; ++i) {
            m_processes.push_back(fork());
            if (m_processes.back() != 0) continue;
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            for (;;)
                benchmark::ClobberMemory();
        }
    }
    ~BusyProcessors() {
        for (const pid_t process : m_processes) {
            kill(process, SIGKILL);
            waitpid(process, nullptr, 0);
        }
    }
    BusyProcessors(const BusyProcessors&) = delete;
    BusyProcessors& operator=(const BusyProcessors&) = delete;

private:
    std::vector<pid_t> m_processes;
};

void GatewayPing(benchmark::State& state) {
    const BusyProcessors busy(state.range(0) != 0);
    PoolProcess<AnsweringServant> pool(1);
    for (auto _ : state) {
        if (!vintakd::ping(pool.gateway())) state.SkipWithError("no answer");
    }
}
BENCHMARK(GatewayPing)->ArgName("busy")->Arg(0)->Arg(1)->UseRealTime()->MinTime(2);

void SocketPingPong(benchmark::State& state) {
    const BusyProcessors busy(state.range(0) != 0);
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) return state.SkipWithError("no socket pair");
    const pid_t peer = fork();
    if (peer == 0) {
        close(ends[0]);
        char bytes[5];
        while (read(ends[1], bytes, sizeof bytes) == sizeof bytes) {
            if (write(ends[1], "PONG", 4) != 4) break;
        }
        _exit(0);
    }
    close(ends[1]);
    for (auto _ : state) {
        char bytes[4];
        if (write(ends[0], "PING", 5) != 5 || read(ends[0], bytes, sizeof bytes) != 4)
            state.SkipWithError("no answer");
    }
    close(ends[0]);
    waitpid(peer, nullptr, 0);
}
BENCHMARK(SocketPingPong)->ArgName("busy")->Arg(0)->Arg(1)->UseRealTime()->MinTime(2);

void MessageThroughput(benchmark::State& state) {
    PoolProcess<AnsweringServant> pool(1);
    const std::vector<char> message(static_cast<size_t>(state.range(0)), 'm');
    for (auto _ : state) {
        ReservedChannel reserved(pool.gateway());
        ipc::Channel& channel = pool.gateway().getChannel(reserved.index());
        channel.send(message.data(), message.size());
        channel.recv();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(MessageThroughput)->Arg(64 << 10)->Arg(16 << 20)->UseRealTime()->MinTime(2);

}  // namespace

BENCHMARK_MAIN();
