#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <stdexcept>

#include "bench/keltframes.h"
#include "bench/keltpeers.h"
#include "kelt4/decoder.h"
#include "kelt4/keltcompressor.h"

/// Lossless coding of one frame, one thread, beside other coders in the same run. Ends with a table of
/// ratios. Takes the options of Google Benchmark: --benchmark_filter='encode/.*/(kelt-avx2|OpenJPH.*)'.
namespace {

using Bytes = std::vector<uint8_t>;

struct Coder {
    std::string name;
    std::function<Bytes(const BenchFrame&)> encode;
    std::function<Bytes(const BenchFrame&, const Bytes& coded)> decode;
};

Bytes encodeKelt(const BenchFrame& frame, const dvq::kelt4::Kernel& kernel) {
    dvq::kelt4::CKeltCompressor compressor(frame.pixels.data(), frame.bytesPerPixel, frame.bitsUsed,
                                           frame.width, frame.height, kernel);
    if (compressor.compress(0) != 0) throw std::runtime_error("compress failed");
    return Bytes(compressor.payload(), compressor.payload() + compressor.payloadSize());
}

/// The newest OpenJPH where the build found it: its module stays loaded.
void addNewestPeer(std::vector<Coder>& list) {
#ifdef VINTAKD_PEER_MODULE
    void* const module = dlopen(VINTAKD_PEER_MODULE, RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) throw std::runtime_error(dlerror());
    const auto entry = reinterpret_cast<peers::ModuleEntry>(dlsym(module, peers::kModuleEntry));
    if (entry == nullptr) throw std::runtime_error(dlerror());
    const peers::Coder peer = entry();
    list.push_back({peer.name, peer.encode, peer.decode});
#else
    (void)list;
    std::printf("The newest OpenJPH is left out: it was not found when the benchmark was built.\n");
#endif
}

std::vector<Coder> coders() {
    std::vector<Coder> list;
    for (const auto& kernel : dvq::kelt4::availableKernels()) {
        if (kernel.encode == nullptr) continue;
        list.push_back({"kelt-" + std::string(kernel.name),
                        [&kernel](const BenchFrame& frame) { return encodeKelt(frame, kernel); },
                        [&kernel](const BenchFrame&, const Bytes& coded) {
                            return dvq::kelt4::decode(coded, {.kernel = &kernel}).pixels;
                        }});
    }
    addNewestPeer(list);
    list.push_back({"OpenJPH", peers::encodeOpenJph, peers::decodeOpenJph});
    list.push_back({"OpenJPEG", peers::encodeOpenJpeg, peers::decodeOpenJpeg});
    list.push_back({"CharLS", peers::encodeCharLs, peers::decodeCharLs});
    return list;
}

/// Keeps the fastest repetition of every benchmark by name, in processor time, and prints as usual.
class BestTimes : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
            const double time = run.cpu_accumulated_time / static_cast<double>(run.iterations);
            auto [entry, fresh] = m_seconds.try_emplace(run.run_name.function_name, time);
            if (!fresh) entry->second = std::min(entry->second, time);
        }
        ConsoleReporter::ReportRuns(runs);
    }
    /// Seconds, 0 when it was not run.
    double operator()(const std::string& name) const {
        const auto entry = m_seconds.find(name);
        return entry == m_seconds.end() ? 0 : entry->second;
    }

private:
    std::map<std::string, double> m_seconds;
};

/// What was not run is a dash and has no part in the means.
void printTable(const BestTimes& times, const std::vector<BenchFrame>& frames, const std::string& operation,
                const std::vector<std::string>& names) {
    std::printf("\n%s: milliseconds of processor time, and how many times as long as %s\n%-10s",
                operation.c_str(), names[0].c_str(), "");
    for (const auto& name : names)
        std::printf("%20s", name.c_str());
    std::printf("\n");
    std::vector<double> logs(names.size(), 0);
    std::vector<int> ratios(names.size(), 0);
    for (const auto& frame : frames) {
        const auto seconds = [&](size_t i) { return times(operation + "/" + frame.name + "/" + names[i]); };
        std::printf("%-10s", frame.name.c_str());
        for (size_t i = 0; i < names.size(); ++i) {
            if (seconds(i) == 0) {
                std::printf("%20s", "-");
                continue;
            }
            std::printf("%11.3f (%6.2f)", 1e3 * seconds(i), seconds(i) / seconds(0));
            logs[i] += std::log(seconds(i) / seconds(0));
            ++ratios[i];
        }
        std::printf("\n");
    }
    std::printf("%-10s", "geo. mean");
    for (size_t i = 0; i < names.size(); ++i) {
        if (ratios[i] == 0)
            std::printf("%20s", "-");
        else
            std::printf("%11s (%6.2f)", "", std::exp(logs[i] / ratios[i]));
    }
    std::printf("\n");
}

/// Codes the frame once with every coder, checks that each gives it back, and registers its benchmarks.
void prepare(const BenchFrame& frame, const std::vector<Coder>& all) {
    std::printf("%s: %dx%d, %d bytes a pixel, %d bits; coded bytes:", frame.name.c_str(), frame.width,
                frame.height, frame.bytesPerPixel, frame.bitsUsed);
    const auto add = [&](const char* operation, const Coder& coder, auto run) {
        const std::string name = std::string(operation) + "/" + frame.name + "/" + coder.name;
        benchmark::RegisterBenchmark(name.c_str(),
                                     [run](benchmark::State& state) {
                                         for (auto _ : state)
                                             benchmark::DoNotOptimize(run());
                                     })
            ->Unit(benchmark::kMillisecond)
            ->MinTime(0.05)
            ->Repetitions(5);
    };
    for (const Coder& coder : all) {
        const Bytes coded = coder.encode(frame);
        if (coder.decode(frame, coded) != frame.pixels)
            throw std::runtime_error(coder.name + " is not lossless");
        std::printf(" %s %zu", coder.name.c_str(), coded.size());
        add("encode", coder, [&frame, &coder] { return coder.encode(frame); });
        add("decode", coder, [&frame, &coder, coded] { return coder.decode(frame, coded); });
    }
    std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
    // Repetitions in random order: what disturbs the machine for a while meets all coders alike.
    std::vector<char*> arguments(argv, argv + argc);
    std::string interleaved = "--benchmark_enable_random_interleaving=true";
    arguments.insert(arguments.begin() + 1, interleaved.data());
    argc = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    benchmark::Initialize(&argc, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(argc, arguments.data())) return 2;
    const std::vector<BenchFrame> frames = loadBenchFrames();
    const std::vector<Coder> all = coders();
    std::vector<std::string> names;
    names.reserve(all.size());
    for (const Coder& coder : all)
        names.push_back(coder.name);
    for (const BenchFrame& frame : frames)
        prepare(frame, all);
    BestTimes times;
    benchmark::RunSpecifiedBenchmarks(&times);
    for (const char* operation : {"encode", "decode"})
        printTable(times, frames, operation, names);
    return 0;
}
