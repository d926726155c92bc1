// The shared-memory exchange beside what the system offers: a ping (reservation, check, request, answer,
// release) against a bare ping-pong over a Unix-domain socket between two processes, and the throughput of
// long messages.

#include <benchmark/benchmark.h>
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

void GatewayPing(benchmark::State& state) {
    PoolProcess<AnsweringServant> pool(1);
    for (auto _ : state) {
        if (!vintakd::ping(pool.gateway())) state.SkipWithError("no answer");
    }
}
BENCHMARK(GatewayPing)->UseRealTime()->MinTime(2);

void SocketPingPong(benchmark::State& state) {
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
BENCHMARK(SocketPingPong)->UseRealTime()->MinTime(2);

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
