#include <pthread.h>
#include <signal.h>
#include <sys/time.h>
#include <time.h>

#include <vector>

#include "hsutils/Utils.h"
#include "tests/shared/testing.h"
#include "vintakd/ipc/barrier.h"
#include "vintakd/ipc/ipcexceptions.h"
#include "vintakd/ipc/spinlock.h"

using namespace std::chrono_literals;

namespace {

/// By how many seconds the wall clock of this process is ahead.
std::atomic<time_t> s_clockIsAhead{0};

class BarrierTest : public testing::Test {
protected:
    BarrierTest() { m_barrier.init(); }
    ~BarrierTest() override { m_barrier.destroy(); }

    ipc::barrier m_barrier;
};

}  // namespace

/// In the place of the C library's.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): the library has names of its own
extern "C" int gettimeofday(timeval* time, void*) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    *time = {now.tv_sec + s_clockIsAhead, now.tv_nsec / 1000};
    return 0;
}

TEST(SpinLock, ZeroGivesUpAfterOneRoundAndTheHolderKeepsIt) {
    alignas(4) ipc::SpinLockByte word[4]{1};
    ipc::SpinLockByte& lock = word[0];
    EXPECT_THROW(ipc::acquire(lock, 0), TimeoutException);
    EXPECT_EQ(lock.load(), 1);
    std::thread holder([&] {
        std::this_thread::sleep_for(30ms);
        ipc::release(lock);
    });
    ipc::acquire(lock, ipc::no_timeout);
    holder.join();
    EXPECT_EQ(lock.load(), 1);
}

TEST_F(BarrierTest, LonelyPartyTimesOutAndTakesItsArrivalBack) {
    EXPECT_THROW(m_barrier.phase1(50), TimeoutException);
    EXPECT_EQ(m_barrier.count(), 0u);
    std::thread other([&] {
        m_barrier.phase1(5000);
        m_barrier.phase2(5000);
    });
    m_barrier.phase1(5000);
    m_barrier.phase2(5000);
    other.join();
    EXPECT_EQ(m_barrier.count(), 0u);
}

TEST_F(BarrierTest, WallClockThatIsSetMakesNoWaitLongerOrShorter) {
    // As if it were set back as soon as a wait has begun.
    s_clockIsAhead = 3600;
    std::atomic<bool> timedOut{false};
    std::thread waiter([&] {
        try {
            m_barrier.phase1(50);
        } catch (const TimeoutException&) {
            timedOut = true;
        }
    });
    for (int i = 0; i < 2000 && !timedOut; ++i)
        std::this_thread::sleep_for(10ms);
    EXPECT_TRUE(timedOut);
    s_clockIsAhead = 0;
    if (!timedOut) m_barrier.phase1(5000);  // it waits for an hour
    waiter.join();

    const ipc::ElapsedTimer timer;
    s_clockIsAhead = 3600;
    EXPECT_FALSE(timer.reached(3'000'000)) << "a lock in living hands would be forced free";
    s_clockIsAhead = -3600;
    EXPECT_LE(timer.rest(1000), 1000) << "who gives way would sleep for an hour";
    s_clockIsAhead = 0;
}

TEST_F(BarrierTest, PartyThatWaitsForTheOthersDepartureTakesItsOwnBack) {
    std::thread other([&] { m_barrier.phase1(5000); });
    m_barrier.phase1(5000);
    other.join();
    EXPECT_THROW(m_barrier.phase2(50), TimeoutException);
    EXPECT_EQ(m_barrier.count(), 2u);
}

TEST_F(BarrierTest, ArrivalInTheMomentOfAWithdrawalCostsNoCrossing) {
    // One side gives up after a millisecond, the other arrives just then: either both cross or neither does.
    constexpr int kRounds = 1200;
    std::atomic<int64_t> arriveAt{0};
    std::atomic<bool> done{false};
    int patientCrossings = 0;
    std::thread patient([&] {
        for (int round = 0; !done; ++round) {
            const int64_t begun = arriveAt.exchange(0);
            while (begun != 0 && nanoTime() < begun + round % 150 * 2000) {
            }
            try {
                m_barrier.phase1(3);
            } catch (const TimeoutException&) {
                continue;
            }
            m_barrier.phase2(20000);
            ++patientCrossings;
        }
    });
    int crossings = 0;
    for (int round = 0; round < kRounds; ++round) {
        arriveAt = nanoTime() + 1'000'000;
        try {
            m_barrier.phase1(1);
        } catch (const TimeoutException&) {
            continue;
        }
        m_barrier.phase2(20000);
        ++crossings;
    }
    done = true;
    patient.join();
    EXPECT_EQ(crossings, patientCrossings);
    EXPECT_EQ(m_barrier.count(), 0u);
}

TEST_F(BarrierTest, WithdrawalWaitsForAMutexThatIsHeldForLongerThanItsOwnTime) {
    auto* mutex = reinterpret_cast<pthread_mutex_t*>(reinterpret_cast<char*>(&m_barrier) + 8);
    std::atomic<bool> over{false};  // a holder that was never there in time waits for nothing
    std::thread holder([&] {
        pthread_mutex_lock(mutex);
        while (m_barrier.count() == 0 && !over) {
            pthread_mutex_unlock(mutex);
            std::this_thread::yield();
            pthread_mutex_lock(mutex);
        }
        std::this_thread::sleep_for(500ms);
        pthread_mutex_unlock(mutex);
    });
    EXPECT_THROW(m_barrier.phase1(200), TimeoutException);
    over = true;
    holder.join();
    EXPECT_EQ(m_barrier.count(), 0U);
}

TEST_F(BarrierTest, SignalDoesNotEndTheWait) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    struct sigaction before {};
    sigaction(SIGUSR1, &action, &before);
    std::atomic<bool> passed{false};
    std::thread waiter([&] {
        m_barrier.phase1(0);  // no limit
        passed = true;
    });
    for (int i = 0; i < 5; ++i) {
        std::this_thread::sleep_for(10ms);
        pthread_kill(waiter.native_handle(), SIGUSR1);
    }
    EXPECT_FALSE(passed);
    m_barrier.phase1(5000);
    waiter.join();
    sigaction(SIGUSR1, &before, nullptr);
}

TEST(SpinBarrier, WaitLeavesTheProcessorToOthersAndEndsWithAPeerThatWakesNobody) {
    // Peers that wake and such that do not by turns: what a thread has learnt of one must not cost it the
    // other.
    std::atomic<uint32_t> words[4] = {};  // the fourth counts sleepers
    auto& barrier = *reinterpret_cast<ipc::SpinBarrier*>(words);
    barrier.init();
    alignas(4) ipc::SpinLockByte word[4]{1};
    ipc::SpinLockByte& lock = word[0];
    const std::vector<bool> peers{true, false, false, true, false};
    std::atomic<double> used{0};
    std::thread waiting([&] {
        for (size_t i = 0; i < peers.size(); ++i) {
            barrier.sync(20000, &words[3]);
            ipc::acquire(lock, 20000, ipc::Sleeping::On::table);
        }
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        used = static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
    });
    for (const bool wakes : peers) {
        while (words[3] != 1)
            std::this_thread::sleep_for(1ms);
        std::this_thread::sleep_for(200ms);
        if (wakes) {
            barrier.sync(20000, &words[3]);
        } else {
            ++words[1];
            words[1] = 0;
            ++words[2];
        }
        std::this_thread::sleep_for(200ms);
        if (wakes) {
            ipc::releaseAndWake(lock);
        } else {
            ipc::release(lock);
        }
    }
    waiting.join();
    EXPECT_LT(used, 0.5) << "seconds of processor time for 2 s of waiting";
    EXPECT_EQ(words[3], 0U);
    EXPECT_EQ(lock.load(), 1);
}

TEST(SpinLock, WhoSleepsForAChannelIsWokenWhenOneIsFreed) {
    alignas(4) ipc::SpinLockByte word[4]{};
    ipc::SpinLockByte& lock = word[0];
    std::atomic<bool> over{false};
    const ipc::ElapsedTimer timer;
    std::thread waiting([&] {
        ipc::sleepForChannel(lock, 60'000);
        over = true;
    });
    // It may not sleep yet, or go to sleep in the moment of the release.
    while (!over && !timer.reached(60'000)) {
        ipc::SpinGuard(lock, 1000).unlock();  // says nothing of a channel
        ipc::wakeForChannel(lock);
        std::this_thread::sleep_for(1ms);
    }
    waiting.join();
    EXPECT_FALSE(timer.reached(60'000));
}

TEST(SpinLock, WhoGivesWayIsWokenAfterThoseInHaste) {
    alignas(4) ipc::SpinLockByte word[4]{};
    ipc::SpinLockByte& lock = word[0];
    std::atomic<int> over{0};
    std::atomic<bool> gaveWay{false};
    const auto asleep = [](pid_t thread) {
        return readFile("/proc/self/task/" + std::to_string(thread) + "/stat").find(") S ") !=
               std::string::npos;
    };
    const auto begin = [&](auto sleep) {
        std::atomic<pid_t> id{0};
        std::thread thread([&, sleep] {
            id = gettid();
            sleep();
            ++over;
        });
        for (int i = 0; i < 10'000 && (id == 0 || !asleep(id)); ++i)
            std::this_thread::sleep_for(1ms);
        return thread;
    };
    std::thread patient = begin([&] {
        ipc::sleepGivingWay(lock, 60'000);
        gaveWay = true;
    });
    std::thread hasty = begin([&] { ipc::sleepForChannel(lock, 60'000); });
    EXPECT_TRUE(ipc::wakeForChannel(lock));
    while (over == 0)
        std::this_thread::sleep_for(1ms);
    EXPECT_FALSE(gaveWay) << "it might go on giving way, and the channel would lie idle";
    EXPECT_FALSE(ipc::wakeForChannel(lock, false)) << "whoever frees it comes back in a moment";
    EXPECT_TRUE(ipc::wakeForChannel(lock));
    patient.join();
    hasty.join();
}

TEST(SpinBarrier, WithdrawalsNeverCostACrossing) {
    // One side gives up at once and tries again, the other waits: whatever the interleaving, crossings stay
    // paired.
    ipc::SpinBarrier barrier;
    barrier.init();
    constexpr uint32_t kCrossings = 20000;
    std::thread patient([&] {
        for (uint32_t i = 0; i < kCrossings; ++i)
            barrier.sync(20000);
    });
    uint32_t crossed = 0;
    while (crossed < kCrossings) {
        try {
            barrier.sync(0);
            ++crossed;
        } catch (const TimeoutException&) {
            sched_yield();
        }
    }
    patient.join();
    EXPECT_EQ(barrier.arrived(), 0u);
    EXPECT_EQ(barrier.generation(), kCrossings);
}

TEST(SpinBarrier, WithdrawalOfAnotherMakeThatCameTooLateIsMended) {
    // Its time was over between its last look and the crossing that our arrival completed for both.
    uint32_t words[3];
    auto& barrier = *new (words) ipc::SpinBarrier;
    barrier.init();
    __atomic_fetch_add(&words[1], 1, __ATOMIC_SEQ_CST);
    barrier.sync(0);
    EXPECT_EQ(barrier.generation(), 1U);
    __atomic_fetch_sub(&words[1], 1, __ATOMIC_SEQ_CST);
    EXPECT_THROW(barrier.sync(0), TimeoutException);
    EXPECT_EQ(barrier.arrived(), 0U);
}
