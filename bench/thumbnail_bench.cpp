#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "keltlegacy/decoder.h"
#include "keltlegacy/keltcompress.h"
#include "render/dicomimagetemplate.h"

/// The thumbnail's road, one thread: a frame of 512 x 512 16-bit samples is averaged to 128 x 128 and
/// compressed into the default budget of 1 % of the frame.
namespace {

constexpr int kSide = 512;
constexpr int kBits = 12;
constexpr size_t kBudget = kSide * kSide * 2 / 100;

using Image = CDicomImageTemplate<CPixelM16, CPixelDDD>;

/// Soft shapes under the noise of a detector.
std::vector<uint16_t> phantom() {
    std::mt19937 random(1);
    std::normal_distribution<double> noise(0, 12);
    std::vector<uint16_t> samples;
    for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < kSide; ++x) {
            const double shape =
                std::sin(x * 0.02) * std::cos(y * 0.03) + ((x / 64 + y / 64) % 3 == 0 ? 0.4 : 0);
            const double value = 1500 + 900 * shape + noise(random);
            samples.push_back(static_cast<uint16_t>(std::clamp(value, 0.0, 4095.0)));
        }
    return samples;
}

std::unique_ptr<CDicomImage> thumbnailOf(std::vector<uint16_t>& samples) {
    Image frame;
    frame.Create(kSide, kSide, samples.data());
    CDicomImage* thumbnail = nullptr;
    int width = 128, height = 128;
    frame.ResampleImage(&thumbnail, width, height);
    return std::unique_ptr<CDicomImage>(thumbnail);
}

std::vector<unsigned char> compressed(const CDicomImage& thumbnail) {
    std::vector<unsigned char> payload(kBudget);
    payload.resize(keltcompress(thumbnail.pixels(), kBits, 2, static_cast<int>(thumbnail.size().cx),
                                static_cast<int>(thumbnail.size().cy), payload.data(), kBudget));
    return payload;
}

void resample(benchmark::State& state) {
    auto samples = phantom();
    for (auto _ : state)
        benchmark::DoNotOptimize(thumbnailOf(samples));
}

void compress(benchmark::State& state) {
    auto samples = phantom();
    const auto thumbnail = thumbnailOf(samples);
    for (auto _ : state)
        benchmark::DoNotOptimize(compressed(*thumbnail));
}

void wholeRoad(benchmark::State& state) {
    auto samples = phantom();
    size_t bytes = 0;
    for (auto _ : state)
        bytes = compressed(*thumbnailOf(samples)).size();
    state.counters["payload"] = static_cast<double>(bytes);
}

void decode(benchmark::State& state) {
    auto samples = phantom();
    const auto payload = compressed(*thumbnailOf(samples));
    keltlegacy::Picture picture;
    for (auto _ : state)
        benchmark::DoNotOptimize(keltlegacy::decode(payload, picture));
}

BENCHMARK(resample)->Unit(benchmark::kMicrosecond);
BENCHMARK(compress)->Unit(benchmark::kMicrosecond);
BENCHMARK(wholeRoad)->Unit(benchmark::kMicrosecond);
BENCHMARK(decode)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
