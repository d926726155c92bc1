#pragma once

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

/// How often a thread looks before it sleeps: as often as pays, by what its last waits came to. Looking that
/// led nowhere is cut to a quarter each time; now and then a full one finds out whether the machine has
/// become quiet.
class Looking {
public:
    /// One count for waits that may be long, for a message to begin, and one for those within a message.
    enum class Kind { arrival, inside };

    /// Looks until `done()` says so; false when it did not in the time that is worth it.
    template <class Done>
    static bool until(Kind kind, Done done) {
        if (done()) return true;
        Looking& looking = of(kind);
        const int looks = looking.begin();
        for (int i = 0; i < looks; ++i) {
            pause();
            if (done()) {
                looking.m_looks = std::min(kMost, std::max(looking.m_looks, 2 * i + kFew));
                return true;
            }
        }
        looking.m_looks = looks / 4;
        return false;
    }

private:
    static constexpr int kMost = 1024;  ///< some tens of microseconds: what it takes to wake a sleeper
    static constexpr int kFew = 8;
    static constexpr int kFullOneIn = 64;

    static Looking& of(Kind kind);
    static void pause();
    int begin() { return ++m_waits % kFullOneIn == 0 ? kMost : m_looks; }

    int m_looks = kMost;
    unsigned m_waits = 0;
};

/// The sleep of a wait that looking did not end, in pieces: longer and longer ones, up to a millisecond,
/// because a peer that only spins wakes nobody.
class Sleeping {
public:
    /// `firstPiece` in nanoseconds.
    explicit Sleeping(timeout limit, int64_t firstPiece = kFirstPiece)
        : m_limit(limit), m_piece(firstPiece) {}

    /// Sleeps while the word holds `value`, until somebody wakes its sleepers or the piece is over. False,
    /// and no sleep, when `limit` has been reached since this object was made.
    bool whileIs(const uint32_t* word, uint32_t value);
    bool whileIs(const std::atomic<uint32_t>& word, uint32_t value) {
        return whileIs(reinterpret_cast<const uint32_t*>(&word), value);
    }

private:
    timeout m_limit;
    ElapsedTimer m_timer;
    int64_t m_piece;

    static constexpr int64_t kFirstPiece = 50'000;
    static constexpr int64_t kLongestPiece = 1'000'000;
};

/// Wakes up to `count` of those that sleep on the word, in any process.
void wakeSleepers(const void* word, int count);

}  // namespace ipc
