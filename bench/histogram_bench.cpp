#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "imgproc/histogram.h"

// The histogram of one frame of 512 x 512 pixels, as every converted frame pays for it.

namespace {

constexpr int kSide = 512;

/// Noise around a slow gradient over black borders: many distinct values, and runs of one value.
std::vector<uint16_t> frameOf(int bits) {
    std::mt19937 random(bits);
    std::normal_distribution<double> noise(0.0, (1 << bits) / 40.0);
    std::vector<uint16_t> frame(size_t{kSide} * kSide, 0);
    for (int y = 0; y < kSide; ++y) {
        for (int x = kSide / 8; x < kSide - kSide / 8; ++x) {
            const double value = (1 << bits) * (0.2 + 0.6 * (x + y) / (2.0 * kSide)) + noise(random);
            frame[y * kSide + x] = static_cast<uint16_t>(std::clamp(value, 0.0, (1 << bits) - 1.0));
        }
    }
    return frame;
}

void countFrame(CHistogram& histogram, const std::vector<uint16_t>& words,
                const std::vector<uint8_t>& bytes) {
    histogram.init(bytes.empty() ? 2 : 1, false, 1.1, 1.2, kSide * kSide);
    if (bytes.empty())
        histogram.countWords(words.data(), words.size());
    else
        histogram.countBytes(bytes.data(), bytes.size());
}

void BM_HistogramCount(benchmark::State& state) {
    const auto words = frameOf(static_cast<int>(state.range(0)));
    const std::vector<uint8_t> bytes(state.range(0) == 8 ? words.begin() : words.end(), words.end());
    CHistogram histogram;
    for (auto _ : state) {
        countFrame(histogram, words, bytes);
        histogram.calculateMinMax();
        benchmark::DoNotOptimize(histogram.maximum());
    }
}

void BM_HistogramCountAndAnalyze(benchmark::State& state) {
    const auto words = frameOf(static_cast<int>(state.range(0)));
    const std::vector<uint8_t> bytes(state.range(0) == 8 ? words.begin() : words.end(), words.end());
    CHistogram histogram;
    for (auto _ : state) {
        countFrame(histogram, words, bytes);
        histogram.analyze(0);
        benchmark::DoNotOptimize(histogram.widthsB()[1]);
    }
}

}  // namespace

BENCHMARK(BM_HistogramCount)->ArgName("bits")->Arg(8)->Arg(12)->Arg(16)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_HistogramCountAndAnalyze)
    ->ArgName("bits")
    ->Arg(8)
    ->Arg(12)
    ->Arg(16)
    ->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
