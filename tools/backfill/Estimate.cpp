#include "tools/backfill/Estimate.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <map>
#include <optional>
#include <random>
#include <stdexcept>
#include <utility>

#include "tools/feeding/WorkerPool.h"

namespace {

using Clock = std::chrono::steady_clock;

/// More would tell better. But what is removed afterwards makes ext4 slow for minutes, for the run itself.
constexpr std::chrono::seconds kShortest{2};

/// An object of the sample and what it took.
struct Measured {
    int ofClass = 0;
    ListedFile file;
    double seconds = 0;
    double written = 0;
    WorkResult::Kind kind = WorkResult::Kind::failed;
};

/// About `most` objects that no pass before had: of each class as many as it has bytes.
std::vector<Measured> choose(const Sample& sample, size_t most, std::map<int, size_t>& had) {
    double all = 1;
    for (const auto& [number, of] : sample.classes())
        all += static_cast<double>(of.bytes);
    std::vector<Measured> chosen;
    for (const auto& [number, of] : sample.classes()) {
        constexpr size_t kLeast = 6;
        const double share = static_cast<double>(of.bytes) / all * static_cast<double>(most);
        size_t& first = had[number];
        const size_t count = std::min(of.kept.size() - first, std::max(kLeast, static_cast<size_t>(share)));
        for (size_t i = 0; i < count; ++i)
            chosen.push_back({.ofClass = number, .file = of.kept[first + i]});
        first += count;
    }
    // Large and small ones are at work together, as they will be.
    // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): no secret, and the same each time
    std::shuffle(chosen.begin(), chosen.end(), std::minstd_rand{});
    return chosen;
}

/// A pass over objects, by the clock and by what each took.
class Pass {
public:
    Pass(WorkerPool& pool, const std::string& archive, const std::function<void()>& everySecond)
        : m_pool(pool), m_archive(archive), m_everySecond(everySecond) {}

    /// Works on the first `count`; `measured` gets what each took.
    void run(std::vector<Measured>& measured, size_t count) {
        const Clock::time_point start = Clock::now();
        std::optional<Clock::time_point> full;  // till when all had work
        for (size_t next = 0; next < count || m_pool.atWork() > 0;) {
            while (next < count && m_pool.isFree())
                give(measured, next++);
            pollfd bell{.fd = m_pool.descriptor(), .events = POLLIN, .revents = 0};
            poll(&bell, 1, kRoundMs);
            const Clock::time_point now = Clock::now();
            for (const FinishedWork& finished : m_pool.take()) {
                Measured& one = measured[finished.object.ticket];
                note(one, finished.result);
                m_busy += one.seconds;
                if (next == count && !full) full = now;
                if (full) m_busy -= std::min(one.seconds, seconds(now - *full));
            }
            if (m_everySecond && now >= m_beat) {
                m_beat = now + std::chrono::seconds(1);
                m_everySecond();
            }
        }
        if (full) m_clock += seconds(*full - start);
    }

    /// While all had work: by the clock, and summed up of what each object took.
    double clock() const { return m_clock; }
    double busy() const { return m_busy; }

private:
    static constexpr int kRoundMs = 200;

    static double seconds(Clock::duration time) { return std::chrono::duration<double>(time).count(); }

    void give(const std::vector<Measured>& measured, size_t number) {
        const ListedFile& file = measured[number].file;
        m_pool.give(
            {.name = file.name, .path = m_archive + "/" + file.name, .size = file.size, .ticket = number});
    }

    static void note(Measured& one, const WorkResult& result) {
        one.seconds = result.seconds;
        one.kind = result.kind;
        one.written = 0;
        for (const SpoolOutput& output : result.outputs)
            one.written += static_cast<double>(output.size);
        if (one.kind == WorkResult::Kind::unreachable || result.errorClass == ErrorClass::output)
            throw std::runtime_error("the sample cannot be converted: " + result.cause);
    }

    WorkerPool& m_pool;
    const std::string& m_archive;
    const std::function<void()>& m_everySecond;
    Clock::time_point m_beat{};
    double m_clock = 0, m_busy = 0;
};

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

Estimate estimate(const Sample& sample, const std::string& archive, SpoolWork& work, size_t jobs, size_t most,
                  const std::function<void()>& everySecond) {
    Estimate result;
    result.unreadable = sample.unreadable();
    std::vector<Measured> measured;
    double pace = 1;
    {
        std::map<int, size_t> had;
        WorkerPool pool(work, jobs, jobs);
        std::vector<Measured> chosen = choose(sample, most, had);
        // Servants that have not worked yet take longer.
        Pass(pool, archive, nullptr).run(chosen, std::min(chosen.size(), 2 * jobs));
        Pass pass(pool, archive, everySecond);
        for (const auto until = Clock::now() + kShortest; !chosen.empty();
             chosen = choose(sample, most, had)) {
            pass.run(chosen, chosen.size());
            std::move(chosen.begin(), chosen.end(), std::back_inserter(measured));
            if (Clock::now() >= until) break;
        }
        // Between two objects of a servant there is time too.
        if (pass.busy() > 0) pace = pass.clock() * static_cast<double>(jobs) / pass.busy();
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
    result.seconds *= pace / static_cast<double>(jobs);
    result.spread = 1.96 * std::sqrt(std::max(variance, 0.0)) * pace / static_cast<double>(jobs);
    result.tried = static_cast<int64_t>(measured.size());
    for (const Measured& one : measured) {
        result.sampled += one.written;
        if (one.kind == WorkResult::Kind::passed) ++result.passed;
        if (one.kind == WorkResult::Kind::failed) ++result.failed;
    }
    return result;
}

void limitByDisk(Estimate& estimate, const DiskPace& pace) {
    const double seconds = pace.seconds(estimate.written);
    if (seconds > estimate.seconds) estimate.onDisk = estimate.seconds = seconds;
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
                   "expected: %.0f s of work (+- %.0f), %.0f s by the clock, %.1f MB of results%s\n",
                   static_cast<long long>(estimate.objects), static_cast<double>(estimate.bytes) / 1e6,
                   static_cast<long long>(estimate.unreadable), static_cast<long long>(estimate.tried),
                   static_cast<long long>(estimate.failed), static_cast<long long>(estimate.passed),
                   estimate.seconds, estimate.spread, calendarSeconds, estimate.written / 1e6,
                   estimate.onDisk > 0 ? ", which the disk is slower to take than they are made" : "");
    return text;
}

std::string jsonOf(const Estimate& estimate, double calendarSeconds) {
    char text[1024];
    (void)snprintf(
        text, sizeof text,
        "{\"schema\":1,\"objects\":%lld,\"bytes\":%lld,\"unreadable\":%lld,\"sample\":%lld,"
        "\"failed\":%lld,\"passed\":%lld,\"seconds\":%.3f,\"spread\":%.3f,\"calendarSeconds\":%.3f,"
        "\"diskSeconds\":%.3f,\"written\":%.0f}\n",
        static_cast<long long>(estimate.objects), static_cast<long long>(estimate.bytes),
        static_cast<long long>(estimate.unreadable), static_cast<long long>(estimate.tried),
        static_cast<long long>(estimate.failed), static_cast<long long>(estimate.passed), estimate.seconds,
        estimate.spread, calendarSeconds, estimate.onDisk, estimate.written);
    return text;
}
