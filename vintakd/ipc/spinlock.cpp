#include "vintakd/ipc/spinlock.h"

namespace ipc {

void acquire(SpinLockByte& lock, timeout limit) {
    SpinRounds rounds;
    do {
        for (int attempt = 0; attempt < SpinRounds::kAttempts; ++attempt) {
            if (lock.exchange(1) == 0) return;
        }
    } while (rounds.next(limit));
    throw TimeoutException();
}

}  // namespace ipc
