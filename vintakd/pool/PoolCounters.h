#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "hsutils/StageClock.h"
#include "hsutils/errorclass.h"

// What the pool counts, in words that the log and the metrics share. All of it lies in memory that the
// supervisor makes before it forks: a servant adds to it, and what a servant that dies has added stays.

enum class RequestKind : uint8_t {
    unread,  ///< it never got so far that it could be read
    ping,
    convert,
    dump,
    query,
};
inline constexpr size_t kRequestKinds = 5;

enum class RequestResult : uint8_t {
    done,
    warned,  ///< done, but not with all that the object declares
    failed,  ///< the client was told why
    lost,    ///< the client went away or fell out of step
    died,    ///< the servant did
};
inline constexpr size_t kRequestResults = 5;

enum class DeathReason : uint8_t {
    signal,         ///< of its own doing: SIGSEGV, SIGABRT, ...
    killed,         ///< SIGKILL from outside: by a client that it kept waiting, or by hand
    memory,         ///< SIGKILL from the kernel, which wanted memory
    exit,           ///< it gave up
    deadline,       ///< its request ran past DEADLINE_SECONDS
    processorTime,  ///< its request used more than CPU_SECONDS or FRAME_CPU_SECONDS
    systemCall,     ///< it made a call that servants have given up
    clientGone,     ///< it worked for nobody
};
inline constexpr size_t kDeathReasons = 8;

const char* nameOf(RequestKind kind);
const char* nameOf(RequestResult result);
const char* nameOf(DeathReason reason);

using Counter = std::atomic<uint64_t>;
static_assert(Counter::is_always_lock_free);

/// How often something took how long.
struct DurationHistogram {
    /// Upper bounds in seconds; what takes longer than the last is counted behind it.
    static constexpr std::array<double, 14> kBounds = {0.001, 0.0025, 0.005, 0.01, 0.025, 0.05, 0.1,
                                                       0.25,  0.5,    1,     2.5,  10,    60,   600};

    std::array<Counter, kBounds.size() + 1> buckets{};
    Counter nanoseconds{0};  ///< together

    void add(int64_t duration);
};

struct PoolCounters {
    std::atomic<int64_t> startTime{0};  ///< of the daemon, in seconds since 1970
    Counter lastRequest{0};             ///< number of the latest request

    std::array<std::array<Counter, kRequestResults>, kRequestKinds> requests{};
    std::array<std::array<Counter, kErrorClasses>, kRequestKinds> errors{};
    std::array<DurationHistogram, kRequestKinds> requestDurations{};
    std::array<DurationHistogram, kStages> stageDurations{};
    DurationHistogram reservations;  ///< how long clients waited for a channel, of those that tell
    Counter files{0};                ///< objects that were converted, dumped or asked
    Counter frames{0};               ///< frames whose files were written
    Counter bytesRead{0};            ///< sizes of the objects' files
    Counter bytesWritten{0};         ///< as OUTPUT_SIZE_MB counts them

    Counter starts{0};
    Counter failedStarts{0};
    Counter renewals{0};
    std::array<Counter, kDeathReasons> deaths{};
    std::array<std::atomic<int64_t>, kDeathReasons> lastDeaths{};  ///< seconds since 1970; 0: none

    Counter timesFull{0};               ///< requests that took the last free servant
    std::atomic<int64_t> fullSince{0};  ///< nanoTime(); 0: not every servant is at work
    Counter fullNanoseconds{0};         ///< without the time since fullSince
};
