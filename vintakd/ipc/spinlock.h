#pragma once

#include <atomic>
#include <cstdint>

#include "vintakd/ipc/ipcexceptions.h"
#include "vintakd/ipc/lockowner.h"
#include "vintakd/ipc/patience.h"
#include "vintakd/ipc/timeout.h"

namespace ipc {

/// One byte of shared memory: 0 free, 1 held. The aligned four bytes around it are the segment's too: they
/// are slept on.
using SpinLockByte = std::atomic<uint8_t>;
static_assert(sizeof(SpinLockByte) == 1 && SpinLockByte::is_always_lock_free);

/// Takes `lock`; throws TimeoutException when it stays held for `limit` (0: after a short while of looking).
/// `place` says of which locks it is one: whether sleepers may expect to be woken.
void acquire(SpinLockByte& lock, timeout limit, Sleeping::On place = Sleeping::On::flag);

inline void release(SpinLockByte& lock) {
    lock.store(0);
}

/// The same for the table's lock, which is held for longer than some instructions: wakes one of those that
/// sleep for it.
void releaseAndWake(SpinLockByte& lock);

/// Without the table's lock in hand: sleeps until somebody who has freed a channel says so, for
/// `milliseconds` at most. Who says it in the moment before is missed.
void sleepForChannel(SpinLockByte& lock, int64_t milliseconds);
/// The same for who gives way to others, and may not even want the channel that was freed.
void sleepGivingWay(SpinLockByte& lock, int64_t milliseconds);
/// A channel was freed: wakes one of those that sleep for one, or, if `orWhoGivesWay`, one that gives way
/// where there is no other; whether there was one.
bool wakeForChannel(SpinLockByte& lock, bool orWhoGivesWay = true);

/// Holds the table's lock for a scope, and wakes one sleeper when it lets go. Says meanwhile in `owner`,
/// where there is one, who holds it.
class SpinGuard {
public:
    SpinGuard(SpinLockByte& lock, timeout limit, LockOwner* owner = nullptr) : m_lock(&lock), m_owner(owner) {
        acquire(lock, limit, Sleeping::On::table);
        if (m_owner) m_owner->store(ownerHere());
    }
    ~SpinGuard() { unlock(); }
    SpinGuard(const SpinGuard&) = delete;
    SpinGuard& operator=(const SpinGuard&) = delete;

    void unlock() {
        if (m_lock && m_owner) m_owner->store(0);
        if (m_lock) releaseAndWake(*m_lock);
        m_lock = nullptr;
    }

private:
    SpinLockByte* m_lock;
    LockOwner* m_owner;
};

}  // namespace ipc
