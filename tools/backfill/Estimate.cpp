#include "tools/backfill/Estimate.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <random>
#include <stdexcept>
#include <unordered_map>
#include <utility>

#include "tools/feeding/WorkerPool.h"

namespace {

using Clock = std::chrono::steady_clock;

/// An object of the sample and what it took.
struct Measured {
    int ofClass = 0;
    ListedFile file;
    double seconds = 0;
    double written = 0;
    WorkResult::Kind kind = WorkResult::Kind::failed;
};

std::vector<Measured> choose(const Sample& sample, size_t most) {
    double all = 1;
    for (const auto& [number, of] : sample.classes())
        all += static_cast<double>(of.bytes);
    std::vector<Measured> chosen;
    for (const auto& [number, of] : sample.classes()) {
        constexpr size_t kLeast = 6;
        const double share = static_cast<double>(of.bytes) / all * static_cast<double>(most);
        const size_t count = std::min(of.kept.size(), std::max(kLeast, static_cast<size_t>(share)));
        for (size_t i = 0; i < count; ++i)
            chosen.push_back({.ofClass = number, .file = of.kept[i]});
    }
    // Large and small ones are at work together, as they will be.
    // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): no secret, and the same each time
    std::shuffle(chosen.begin(), chosen.end(), std::minstd_rand{});
    return chosen;
}

/// Works on some of them; `measured` gets what each took.
void workOn(std::vector<Measured>& measured, size_t count, const std::string& archive, WorkerPool& pool) {
    std::unordered_map<std::string, std::pair<Measured*, Clock::time_point>> atWork;
    for (size_t next = 0; next < count || pool.atWork() > 0;) {
        while (next < count && pool.isFree()) {
            Measured& one = measured[next++];
            atWork[one.file.name] = {&one, Clock::now()};
            pool.give({.name = one.file.name, .path = archive + "/" + one.file.name, .size = one.file.size});
        }
        pollfd bell{.fd = pool.descriptor(), .events = POLLIN, .revents = 0};
        poll(&bell, 1, 1000);
        for (const FinishedWork& finished : pool.take()) {
            const auto& [one, since] = atWork.at(finished.object.name);
            one->seconds = std::chrono::duration<double>(Clock::now() - since).count();
            one->kind = finished.result.kind;
            one->written = 0;
            for (const SpoolOutput& output : finished.result.outputs)
                one->written += static_cast<double>(output.size);
            if (one->kind == WorkResult::Kind::unreachable ||
                finished.result.errorClass == ErrorClass::output)
                throw std::runtime_error("the sample cannot be converted: " + finished.result.cause);
        }
    }
}

struct Sum {
    double count = 0, seconds = 0, squares = 0, written = 0, bytes = 0;
};

std::map<int, Sum> sumsOf(const std::vector<Measured>& measured) {
    std::map<int, Sum> sums;
    for (const Measured& one : measured) {
        Sum& sum = sums[one.ofClass];
        sum.count += 1;
        sum.seconds += one.seconds;
        sum.squares += one.seconds * one.seconds;
        sum.written += one.written;
        sum.bytes += static_cast<double>(one.file.size);
    }
    return sums;
}

}  // namespace

Estimate estimate(const Sample& sample, const std::string& archive, SpoolWork& work, size_t jobs,
                  size_t most) {
    Estimate result;
    result.unreadable = sample.unreadable();
    std::vector<Measured> measured = choose(sample, most);
    {
        WorkerPool pool(work, jobs);
        // Servants that have not worked yet take longer.
        workOn(measured, std::min(measured.size(), 2 * jobs), archive, pool);
        workOn(measured, measured.size(), archive, pool);
    }
    double variance = 0;
    const std::map<int, Sum> sums = sumsOf(measured);
    for (const auto& [number, of] : sample.classes()) {
        const auto objects = static_cast<double>(of.objects);
        result.objects += of.objects;
        result.bytes += of.bytes;
        const Sum& sum = sums.at(number);
        const double scale = sum.bytes > 0 ? static_cast<double>(of.bytes) / sum.bytes : objects / sum.count;
        result.seconds += sum.seconds * scale;
        result.written += sum.written * scale;
        const double mean = sum.seconds / sum.count;
        if (sum.count > 1 && sum.count < objects)
            variance += objects * objects * (sum.squares / sum.count - mean * mean) / (sum.count - 1);
    }
    result.seconds /= static_cast<double>(jobs);
    result.spread = 1.96 * std::sqrt(std::max(variance, 0.0)) / static_cast<double>(jobs);
    result.tried = static_cast<int64_t>(measured.size());
    for (const Measured& one : measured) {
        if (one.kind == WorkResult::Kind::passed) ++result.passed;
        if (one.kind == WorkResult::Kind::failed) ++result.failed;
    }
    return result;
}

double calendarSeconds(const Estimate& estimate, double rate, const Hours& hours) {
    const double work = rate > 0 ? std::max(estimate.seconds, static_cast<double>(estimate.objects) / rate)
                                 : estimate.seconds;
    return work / hours.share();
}

std::string textOf(const Estimate& estimate, double calendarSeconds) {
    char text[1024];
    (void)snprintf(text, sizeof text,
                   "archive: %lld objects, %.1f MB; %lld folders cannot be read\n"
                   "sample: %lld objects, %lld failed, %lld passed over\n"
                   "expected: %.0f s of work (+- %.0f), %.0f s by the clock, %.1f MB of results\n",
                   static_cast<long long>(estimate.objects), static_cast<double>(estimate.bytes) / 1e6,
                   static_cast<long long>(estimate.unreadable), static_cast<long long>(estimate.tried),
                   static_cast<long long>(estimate.failed), static_cast<long long>(estimate.passed),
                   estimate.seconds, estimate.spread, calendarSeconds, estimate.written / 1e6);
    return text;
}

std::string jsonOf(const Estimate& estimate, double calendarSeconds) {
    char text[1024];
    (void)snprintf(
        text, sizeof text,
        "{\"schema\":1,\"objects\":%lld,\"bytes\":%lld,\"unreadable\":%lld,\"sample\":%lld,"
        "\"failed\":%lld,\"passed\":%lld,\"seconds\":%.3f,\"spread\":%.3f,\"calendarSeconds\":%.3f,"
        "\"written\":%.0f}\n",
        static_cast<long long>(estimate.objects), static_cast<long long>(estimate.bytes),
        static_cast<long long>(estimate.unreadable), static_cast<long long>(estimate.tried),
        static_cast<long long>(estimate.failed), static_cast<long long>(estimate.passed), estimate.seconds,
        estimate.spread, calendarSeconds, estimate.written);
    return text;
}
