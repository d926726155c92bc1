#include "vintakd/ipc/spinlock.h"

#include "vintakd/ipc/patience.h"

namespace ipc {

namespace {

/// The kernel puts processes to sleep on words: the one that the lock lies in. What else is in it changes
/// seldom.
uint32_t* wordOf(SpinLockByte& lock) {
    return reinterpret_cast<uint32_t*>(reinterpret_cast<uintptr_t>(&lock) & ~uintptr_t{3});
}

bool take(SpinLockByte& lock) {
    return lock.load(std::memory_order_relaxed) == 0 && lock.exchange(1) == 0;
}

}  // namespace

void acquire(SpinLockByte& lock, timeout limit, Sleeping::On place) {
    if (limit.milliseconds() == 0) {
        constexpr int kLooks = 1000;
        for (int i = 0; i < kLooks; ++i)
            if (take(lock)) return;
        throw TimeoutException();
    }
    if (Looking::until(Looking::Kind::inside, [&lock] { return take(lock); })) return;
    Sleeping sleeping(place, limit);
    do {
        const uint32_t held = __atomic_load_n(wordOf(lock), __ATOMIC_SEQ_CST);
        if (take(lock)) return;
        if (!sleeping.whileIs(wordOf(lock), held)) throw TimeoutException();
    } while (true);
}

void releaseAndWake(SpinLockByte& lock) {
    release(lock);
    wakeSleepers(wordOf(lock), 1);
}

bool wakeForChannel(SpinLockByte& lock, bool orWhoGivesWay) {
    return wakeSleepers(wordOf(lock), 1, waitbits::kForChannel) > 0 ||
           (orWhoGivesWay && wakeSleepers(wordOf(lock), 1, waitbits::kGivingWay) > 0);
}

void sleepForChannel(SpinLockByte& lock, int64_t milliseconds) {
    sleepForChannel(wordOf(lock), milliseconds, waitbits::kForChannel);
}

void sleepGivingWay(SpinLockByte& lock, int64_t milliseconds) {
    sleepForChannel(wordOf(lock), milliseconds, waitbits::kGivingWay);
}

}  // namespace ipc
