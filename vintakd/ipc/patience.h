#pragma once

#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "vintakd/ipc/timeout.h"

// How a process of ours waits for another one in shared memory. While the other is at work on a processor of
// its own it answers within a microsecond or two, and looking again and again is the fastest way to notice.
// On a machine that has more to do than processors it waits for the very processor that looking burns. So
// every wait looks for a short while first, and sleeps in the kernel then: until it is woken by a peer that
// knows how, and a moment at most where the peer only spins and wakes nobody.

namespace ipc {

/// How long a thread looks before it sleeps: as long as it takes to put it to sleep and to wake it, while
/// that pays. One time in vain says little, because the peer may just have lost its processor; some of them
/// on end say that nobody who is waited for is at work, and nothing is looked for any more. Now and then a
/// look finds out whether that has changed, and one that succeeds is enough to look for everything again.
class Looking {
public:
    /// One memory for waits that may be long, for a message to begin, and one for those within a message.
    enum class Kind { arrival, inside };

    /// Looks until `done()` says so; false when it did not in the time that is worth it.
    template <class Done>
    static bool until(Kind kind, Done done) {
        if (done()) return true;
        Looking& looking = of(kind);
        const int64_t time = looking.begin();
        if (time > 0 && looking.seen(time, done)) {
            looking.m_inVain = 0;
            return true;
        }
        looking.m_inVain = std::min(looking.m_inVain + 1, kMostInVain);
        return false;
    }

private:
    static constexpr int64_t kLongest = 25'000;  ///< nanoseconds
    static constexpr int kLooksAtOnce = 16;      ///< the clock costs as much as some looks
    static constexpr int kMostInVain = 4;
    static constexpr unsigned kFullOneIn = 32;

    static Looking& of(Kind kind);
    static void pause();
    static int64_t now();

    /// For how many nanoseconds to look this time.
    int64_t begin() {
        if (++m_waits % kFullOneIn == 0) return kLongest;
        return m_inVain == kMostInVain ? 0 : kLongest >> (2 * std::max(m_inVain - 1, 0));
    }

    template <class Done>
    static bool seen(int64_t time, Done& done) {
        const auto look = [&done] {
            for (int i = 0; i < kLooksAtOnce; ++i) {
                pause();
                if (done()) return true;
            }
            return false;
        };
        if (look()) return true;
        const int64_t end = now() + time;
        do {
            if (look()) return true;
        } while (now() < end);
        return false;
    }

    int m_inVain = 0;
    unsigned m_waits = 0;
};

/// The sleep of a wait that looking did not end, in pieces. A peer that only spins wakes nobody, so that the
/// pieces are short until somebody was woken; a short piece needs the clock to be set, which costs more than
/// the sleep. They are short again as soon as a word has changed in a sleep that nobody ended.
class Sleeping {
public:
    /// What is slept on, which says what is known of the peers there; of a flag never more than that its
    /// owner wakes nobody.
    enum class On { barrier, table, flag };

    Sleeping(On place, timeout limit);

    /// Sleeps while the word holds `value`, until somebody wakes its sleepers or the piece is over. False,
    /// and no sleep, when `limit` has been reached since this object was made.
    bool whileIs(const uint32_t* word, uint32_t value);
    bool whileIs(const std::atomic<uint32_t>& word, uint32_t value) {
        return whileIs(reinterpret_cast<const uint32_t*>(&word), value);
    }

private:
    On m_place;
    timeout m_limit;
    ElapsedTimer m_timer;
    int64_t m_piece;    ///< nanoseconds
    int64_t m_longest;  ///< nanoseconds
};

/// Those that sleep on one word for different things are told apart by the bits of FUTEX_WAIT_BITSET.
namespace waitbits {
constexpr uint32_t kForChannel = 1U << 31;  ///< on the table's word, for a channel to be freed
constexpr uint32_t kGivingWay = 1U << 30;   ///< there as well, of those who take one only if few are served
constexpr uint32_t kOthers = ~(kForChannel | kGivingWay);
}  // namespace waitbits

/// So many nanoseconds from now on the clock that nobody sets (CLOCK_MONOTONIC).
timespec monotonicAfter(int64_t nanoseconds);

/// Wakes up to `count` of those that sleep on the word, in any process; how many there were.
long wakeSleepers(const void* word, int count, uint32_t which = waitbits::kOthers);

/// Sleeps on the table's word until a peer that knows how says that it has freed a channel, or for so long;
/// `as` is one of the two bits that are for that.
void sleepForChannel(const uint32_t* word, int64_t milliseconds, uint32_t as);

}  // namespace ipc
