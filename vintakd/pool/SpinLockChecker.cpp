#include "vintakd/pool/SpinLockChecker.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "vintakd/pool/logformat.h"

namespace {

constexpr std::chrono::milliseconds kPause{5000};
constexpr std::chrono::milliseconds kPauseWhileHeld{1};
constexpr ipc::timeout kHeldTooLong{10'000};

// Not through a stream: its lock could be held in a child that is forked at this moment.
void report(const char* text) {
    const std::string line = lineBesideLog(text);
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace

SpinLockChecker::SpinLockChecker(GatewayBase& gateway) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    m_thread = std::thread([this, &gateway] { SpinLockCheckerThread(gateway); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

SpinLockChecker::~SpinLockChecker() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

bool SpinLockChecker::pause(std::chrono::milliseconds duration) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_wake.wait_for(lock, duration, [this] { return m_stop; });
}

void SpinLockChecker::SpinLockCheckerThread(GatewayBase& gateway) {
    GatewayBase::LockTimes times;
    const auto isHeld = [](const auto& since) { return since.has_value(); };
    while (pause(std::any_of(times.begin(), times.end(), isHeld) ? kPauseWhileHeld : kPause)) {
        const GatewayBase::FreedLocks freed = gateway.lookAtLocks(kHeldTooLong, times);
        if (freed.headers > 0) report("Reseting spinlock of a channel header");
        if (freed.table) report("Reseting spinlock");
    }
}
