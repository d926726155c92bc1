#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "vintakd/ipc/GatewayBase.h"

/// A thread that looks at the spin locks of the segment and of its channel headers every five seconds and
/// forces free what stays held for ten: a client that died with a lock in its hand must not stop everybody
/// else. Runs until it is destroyed, which has to happen before the gateway goes.
class SpinLockChecker {
public:
    /// Starts the thread; every signal is blocked in it.
    explicit SpinLockChecker(GatewayBase& gateway);
    /// Ends the thread and waits for it.
    ~SpinLockChecker();
    SpinLockChecker(const SpinLockChecker&) = delete;
    SpinLockChecker& operator=(const SpinLockChecker&) = delete;

private:
    void SpinLockCheckerThread(GatewayBase& gateway);
    bool pause(std::chrono::milliseconds duration);

    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stop = false;
    std::thread m_thread;
};
