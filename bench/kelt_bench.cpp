#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <stdexcept>

#include "bench/keltframes.h"
#include "bench/keltpeers.h"
#include "kelt4/keltcompressor.h"

/// Lossless coding of one frame, one thread, beside other coders in the same run. Ends with a table of
/// ratios.
namespace {

using Coded = std::vector<uint8_t>;
using Encode = std::function<Coded(const BenchFrame&)>;

Coded encodeKelt(const BenchFrame& frame, const dvq::kelt4::Kernel& kernel) {
    dvq::kelt4::CKeltCompressor compressor(frame.pixels.data(), frame.bytesPerPixel, frame.bitsUsed,
                                           frame.width, frame.height, kernel);
    if (compressor.compress(0) != 0) throw std::runtime_error("compress failed");
    return Coded(compressor.payload(), compressor.payload() + compressor.payloadSize());
}

struct Coder {
    std::string name;
    Encode encode;
};

std::vector<Coder> coders() {
    std::vector<Coder> list;
    for (const auto& kernel : dvq::kelt4::availableKernels()) {
        if (kernel.encode == nullptr) continue;
        list.push_back({"kelt-" + std::string(kernel.name),
                        [&kernel](const BenchFrame& frame) { return encodeKelt(frame, kernel); }});
    }
    list.push_back({"OpenJPH", peers::encodeOpenJph});
    list.push_back({"OpenJPEG", peers::encodeOpenJpeg});
    list.push_back({"CharLS", peers::encodeCharLs});
    return list;
}

/// Keeps the fastest repetition of every benchmark by name and prints as usual.
class BestTimes : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
            const double time = run.real_accumulated_time / static_cast<double>(run.iterations);
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

void printTable(const BestTimes& times, const std::vector<BenchFrame>& frames, const std::string& operation,
                const std::vector<std::string>& names) {
    std::printf("\n%s: milliseconds, and how many times as long as %s\n%-10s", operation.c_str(),
                names[0].c_str(), "");
    for (const auto& name : names)
        std::printf("%20s", name.c_str());
    std::printf("\n");
    std::vector<double> logs(names.size(), 0);
    for (const auto& frame : frames) {
        const auto seconds = [&](size_t i) { return times(operation + "/" + frame.name + "/" + names[i]); };
        std::printf("%-10s", frame.name.c_str());
        for (size_t i = 0; i < names.size(); ++i) {
            std::printf("%11.3f (%6.2f)", 1e3 * seconds(i), seconds(i) / seconds(0));
            logs[i] += std::log(seconds(i) / seconds(0));
        }
        std::printf("\n");
    }
    std::printf("%-10s", "geo. mean");
    for (const double log : logs)
        std::printf("%11s (%6.2f)", "", std::exp(log / static_cast<double>(frames.size())));
    std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const std::vector<BenchFrame> frames = loadBenchFrames();
    const std::vector<Coder> all = coders();
    std::vector<std::string> names;
    for (const Coder& coder : all)
        names.push_back(coder.name);
    for (const auto& frame : frames) {
        std::printf("%s: %dx%d, %d bytes a pixel, %d bits; bytes:", frame.name.c_str(), frame.width,
                    frame.height, frame.bytesPerPixel, frame.bitsUsed);
        for (const Coder& coder : all) {
            const size_t size = coder.encode(frame).size();
            std::printf(" %s %zu", coder.name.c_str(), size);
            benchmark::RegisterBenchmark(("encode/" + frame.name + "/" + coder.name).c_str(),
                                         [&frame, &coder](benchmark::State& state) {
                                             for (auto _ : state)
                                                 benchmark::DoNotOptimize(coder.encode(frame));
                                         })
                ->Unit(benchmark::kMillisecond)
                ->Repetitions(3);
        }
        std::printf("\n");
    }
    BestTimes times;
    benchmark::RunSpecifiedBenchmarks(&times);
    printTable(times, frames, "encode", names);
    return 0;
}
