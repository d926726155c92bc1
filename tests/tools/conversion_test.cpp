#include "tools/command/Conversion.h"

#include <algorithm>
#include <atomic>
#include <set>
#include <stdexcept>
#include <thread>

#include "tests/shared/testing.h"
#include "tools/command/ListReader.h"
#include "tools/command/ProcessorLoad.h"

using namespace std::chrono_literals;

namespace {

/// So many jobs with places from 0 up.
Conversion::Source jobsUpTo(size_t count) {
    return [count, next = size_t{0}](ConversionJob& job) mutable {
        job.place = next;
        return next++ < count;
    };
}

}  // namespace

TEST(Conversion, DoesEveryJobOnceWhateverNumberIsAtWork) {
    constexpr size_t kMost = 5;
    std::mutex mutex;
    std::multiset<size_t> done;
    std::atomic<size_t> atWork{0}, greatest{0};
    Conversion conversion(jobsUpTo(60), [&](const ConversionJob& job) {
        const size_t now = ++atWork;
        for (size_t seen = greatest; seen < now && !greatest.compare_exchange_weak(seen, now);) {
        }
        std::this_thread::sleep_for(30ms);  // long enough for the number to be adapted
        --atWork;
        const std::lock_guard<std::mutex> lock(mutex);
        done.insert(job.place);
    });
    conversion.run(1, kMost);
    EXPECT_EQ(done.size(), 60U);
    EXPECT_EQ(std::set<size_t>(done.begin(), done.end()).size(), 60U);
    EXPECT_LE(greatest, kMost);
}

TEST(Conversion, HasAsManyAtWorkAsItWasTold) {
    std::atomic<size_t> atWork{0};
    Conversion conversion(jobsUpTo(3), [&](const ConversionJob&) {
        ++atWork;
        EXPECT_TRUE(eventually([&] { return atWork == 3; }));
    });
    conversion.run(3);
}

TEST(Conversion, EndsWithWhatAJobThrowsThoughWorkersPause) {
    std::atomic<size_t> done{0};
    Conversion conversion(jobsUpTo(1'000'000), [&](const ConversionJob& job) {
        if (job.place == 20) throw std::runtime_error("as told");
        std::this_thread::sleep_for(20ms);
        ++done;
    });
    EXPECT_THROW(conversion.run(1, 4), std::runtime_error);
    EXPECT_LT(done, 1000U);
}

TEST(ListReader, TakesAListOfTheOtherKindForNone) {
    const TemporaryFolder folder;
    writeFile(folder / "list", std::string("one\0two\0", 8));
    std::string name;
    ListReader names(folder / "list", '\0');
    EXPECT_TRUE(names.next(name) && name == "one" && names.next(name) && name == "two" && !names.next(name));
    EXPECT_THROW(ListReader(folder / "list", '\n').next(name), std::runtime_error);
}

TEST(ProcessorLoad, OwnWorkOnEveryProcessorLeavesNoneIdle) {
    std::atomic<bool> over{false};
    std::vector<std::thread> hogs;
    for (unsigned i = 0; i < std::max(std::thread::hardware_concurrency(), 1U); ++i)
        hogs.emplace_back([&over] {
            while (!over) {
            }
        });
    ProcessorLoad load;
    EXPECT_TRUE(eventually([&] {
        std::this_thread::sleep_for(200ms);
        const auto idle = load.idleShare();
        return idle && *idle < 0.3;
    }));
    over = true;
    for (std::thread& hog : hogs)
        hog.join();
}
