// Whole conversions by the real servant into memory-backed files: all files of a 512x512 16-bit frame, with
// one client thread for each servant. VINTAKD_BENCH_OBJECT names an object to convert in place of the
// phantom.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <atomic>
#include <filesystem>
#include <vector>

#include "bench/pool_process.h"
#include "tools/phantom/phantomobject.h"
#include "vintakd/service/VintakServant.h"
#include "vintakd/vintakd_if.h"

namespace {

/// A folder in memory, with the object to convert.
class Workplace {
public:
    Workplace() : m_path("/dev/shm/vintakd_bench_files_" + std::to_string(getpid())) {
        std::filesystem::create_directory(m_path);
        if (const char* object = getenv("VINTAKD_BENCH_OBJECT")) {
            std::filesystem::copy_file(object, input());
        } else {
            writePhantom(input(), {1, 512});
        }
    }
    ~Workplace() { std::filesystem::remove_all(m_path); }

    std::string input() const { return m_path + "/in.dcm"; }
    std::string output(int client) const { return m_path + "/out" + std::to_string(client); }

private:
    std::string m_path;
};

void convert(Gateway& gateway, const Workplace& workplace, int client) {
    constexpr int kAllFiles = 3;
    const std::string output = workplace.output(client);
    vintakd::vintak(gateway, workplace.input().c_str(), output.c_str(), output.c_str(), false, false, false,
                    true, false, 0, 0, nullptr, 0, nullptr, kAllFiles, 0, 0);
}

/// Seconds that `clients` threads take for `perClient` conversions each.
void Conversions(benchmark::State& state) {
    const int servants = static_cast<int>(state.range(0));
    VintakServant::prepareProcess();
    const Workplace workplace;
    PoolProcess<VintakServant> pool(static_cast<uint64_t>(servants));
    constexpr int kPerClient = 25;
    for (auto _ : state) {
        std::vector<std::thread> clients;
        clients.reserve(static_cast<size_t>(servants));
        for (int client = 0; client < servants; ++client) {
            clients.emplace_back([&, client] {
                for (int i = 0; i < kPerClient; ++i)
                    convert(pool.gateway(), workplace, client);
            });
        }
        for (std::thread& client : clients)
            client.join();
    }
    state.SetItemsProcessed(state.iterations() * servants * kPerClient);
}
BENCHMARK(Conversions)->Arg(1)->Arg(2)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond)->MinTime(2);

}  // namespace

BENCHMARK_MAIN();
