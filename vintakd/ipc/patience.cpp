#include "vintakd/ipc/patience.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace ipc {

static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t));

namespace {

// Of peers that may wake nobody.
constexpr int64_t kFirstPiece = 50'000;
constexpr int64_t kFirstPieceForTable = 1'000'000;  // long enough for the holder to ask a servant
constexpr int64_t kLongestPiece = 1'000'000;
// Of those that do: beyond the next tick of the clock, which therefore need not be set.
constexpr int64_t kFirstPieceOfSure = 5'000'000;
constexpr int64_t kLongestPieceOfSure = 80'000'000;

enum class Sleep { woken, over, other };

Sleep sleepOn(const uint32_t* word, uint32_t value, int64_t nanoseconds, uint32_t which) {
    const timespec until = monotonicAfter(nanoseconds);
    if (syscall(SYS_futex, word, FUTEX_WAIT_BITSET, value, &until, nullptr, which) == 0) return Sleep::woken;
    return errno == ETIMEDOUT ? Sleep::over : Sleep::other;
}

/// Whether the last sleep of this thread at the place that told anything was ended by a peer.
bool& peersWake(Sleeping::On place) {
    thread_local std::array<bool, 3> wake{};
    return wake[static_cast<size_t>(place)];
}

}  // namespace

Looking& Looking::of(Kind kind) {
    thread_local Looking arrival, inside;
    return kind == Kind::arrival ? arrival : inside;
}

void Looking::pause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

int64_t Looking::now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

Sleeping::Sleeping(On place, timeout limit) : m_place(place), m_limit(limit) {
    const bool sure = peersWake(place);
    m_piece = sure ? kFirstPieceOfSure : place == On::table ? kFirstPieceForTable : kFirstPiece;
    m_longest = sure ? kLongestPieceOfSure : kLongestPiece;
}

bool Sleeping::whileIs(const uint32_t* word, uint32_t value) {
    if (m_timer.reached(m_limit)) return false;
    int64_t piece = m_piece;
    if (m_limit != no_timeout) piece = std::min(piece, m_timer.rest(m_limit) * 1'000'000);
    // Whatever ends it, the caller looks again.
    const Sleep sleep = sleepOn(word, value, piece, waitbits::kOthers);
    if (sleep == Sleep::woken && m_place != On::flag) peersWake(m_place) = true;
    if (sleep == Sleep::over && __atomic_load_n(word, __ATOMIC_SEQ_CST) != value) peersWake(m_place) = false;
    m_piece = std::min(2 * m_piece, m_longest);
    return true;
}

timespec monotonicAfter(int64_t nanoseconds) {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    nanoseconds += time.tv_nsec;
    time.tv_sec += nanoseconds / 1'000'000'000;
    time.tv_nsec = nanoseconds % 1'000'000'000;
    return time;
}

long wakeSleepers(const void* word, int count, uint32_t which) {
    return syscall(SYS_futex, word, FUTEX_WAKE_BITSET, count, nullptr, nullptr, which);
}

void sleepForChannel(const uint32_t* word, int64_t milliseconds, uint32_t as) {
    sleepOn(word, __atomic_load_n(word, __ATOMIC_SEQ_CST), milliseconds * 1'000'000, as);
}

}  // namespace ipc
