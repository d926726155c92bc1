#pragma once

#include <sched.h>

#include <atomic>
#include <cstdint>

#include "vintakd/ipc/ipcexceptions.h"
#include "vintakd/ipc/timeout.h"

namespace ipc {

/// One byte of shared memory: 0 free, 1 held.
using SpinLockByte = std::atomic<uint8_t>;
static_assert(sizeof(SpinLockByte) == 1 && SpinLockByte::is_always_lock_free);

/// The rhythm of every spinning wait: rounds of 1000 attempts, the clock read once a round. The first rounds
/// burn the processor, because the other party usually answers within microseconds; after that every round
/// yields, or sixteen clients on two processors would starve the very party they wait for.
class SpinRounds {
public:
    static constexpr int kAttempts = 1000;
    static constexpr int kBusyRounds = 20;

    /// Ends one failed round; false when `limit` has been reached.
    bool next(timeout limit) {
        if (m_timer.reached(limit)) return false;
        if (++m_rounds > kBusyRounds) {
            m_rounds = kBusyRounds;
            sched_yield();
        }
        return true;
    }

private:
    ElapsedTimer m_timer;
    int m_rounds = 0;
};

/// Takes `lock`; throws TimeoutException when it stays held for `limit` (0: after the first round).
inline void acquire(SpinLockByte& lock, timeout limit) {
    SpinRounds rounds;
    do {
        for (int attempt = 0; attempt < SpinRounds::kAttempts; ++attempt) {
            if (lock.exchange(1) == 0) return;
        }
    } while (rounds.next(limit));
    throw TimeoutException();
}

inline void release(SpinLockByte& lock) {
    lock.store(0);
}

/// Holds a spin lock for a scope.
class SpinGuard {
public:
    SpinGuard(SpinLockByte& lock, timeout limit) : m_lock(&lock) { acquire(lock, limit); }
    ~SpinGuard() { unlock(); }
    SpinGuard(const SpinGuard&) = delete;
    SpinGuard& operator=(const SpinGuard&) = delete;

    void unlock() {
        if (m_lock) release(*m_lock);
        m_lock = nullptr;
    }

private:
    SpinLockByte* m_lock;
};

}  // namespace ipc
