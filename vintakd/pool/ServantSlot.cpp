#include "vintakd/pool/ServantSlot.h"

#include <algorithm>

#include "hsutils/Utils.h"

using namespace std::chrono_literals;

namespace {

constexpr auto kClientGrace = 5s;  // beyond a channel's time-out
constexpr auto kFirstPostponement = 100ms;
constexpr int kMostDoublings = 6;  // a servant that cannot start is tried every 6.4 s at the longest
constexpr auto kWorkForNobody = 5s;

}  // namespace

void ServantSlot::begin(pid_t process) {
    pid = process;
    ready = false;
    startedAt = Clock::now();
    clientGoneSince.reset();
    killedFor.clear();
    killedAs.reset();
}

void ServantSlot::postpone() {
    waitsForRestart = true;
    restartAt = Clock::now() + kFirstPostponement * (1 << std::min(failedStarts - 1, kMostDoublings));
}

void ServantSlot::waitForClient(int32_t limitMs) {
    waitsForClient = true;
    resetAt = limitMs <= 0 ? Clock::time_point::max()
                           : Clock::now() + std::chrono::milliseconds(limitMs) + kClientGrace;
}

bool ServantSlot::isToEnd(int64_t busySince, bool isForNobody, const ServantLimits& limits) {
    if (!isForNobody) {
        clientGoneSince.reset();
    } else if (!clientGoneSince) {
        clientGoneSince = Clock::now();
    }
    if (busySince > 0 && limits.deadlineSeconds != 0 &&
        nanoToSec(nanoTime() - busySince) > static_cast<double>(limits.deadlineSeconds)) {
        killedFor = "the deadline of " + std::to_string(limits.deadlineSeconds) + " s for a request was hit";
        killedAs = DeathReason::deadline;
        return true;
    }
    if (!clientGoneSince || Clock::now() - *clientGoneSince <= kWorkForNobody) return false;
    killedFor = "its client had gone";
    killedAs = DeathReason::clientGone;
    return true;
}

ServantDeath ServantSlot::describe(const siginfo_t& how, const rusage& used) const {
    return {.how = how,
            .used = used,
            .livedFor = Clock::now() - startedAt,
            .endedWithDaemon = stopped,
            .killedFor = killedFor,
            .killedAs = killedAs};
}
