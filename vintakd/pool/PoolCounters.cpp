#include "vintakd/pool/PoolCounters.h"

#include <algorithm>

const char* nameOf(RequestKind kind) {
    constexpr const char* kNames[kRequestKinds] = {"unread", "ping", "convert", "dump", "query"};
    return kNames[static_cast<size_t>(kind)];
}

const char* nameOf(RequestResult result) {
    constexpr const char* kNames[kRequestResults] = {"done", "warned", "failed", "lost", "died"};
    return kNames[static_cast<size_t>(result)];
}

const char* nameOf(DeathReason reason) {
    constexpr const char* kNames[kDeathReasons] = {
        "signal", "killed", "memory", "exit", "deadline", "processor_time", "system_call", "client_gone"};
    return kNames[static_cast<size_t>(reason)];
}

void DurationHistogram::add(int64_t duration) {
    const auto found = std::lower_bound(kBounds.begin(), kBounds.end(), nanoToSec(duration));
    ++buckets[static_cast<size_t>(found - kBounds.begin())];
    nanoseconds += static_cast<uint64_t>(std::max<int64_t>(duration, 0));
}
