#include "vintakd/ipc/patience.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

namespace ipc {

static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t));

Looking& Looking::of(Kind kind) {
    thread_local Looking arrival, inside;
    return kind == Kind::arrival ? arrival : inside;
}

void Looking::pause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

bool Sleeping::whileIs(const uint32_t* word, uint32_t value) {
    if (m_timer.reached(m_limit)) return false;
    int64_t piece = m_piece;
    if (m_limit != no_timeout) piece = std::min(piece, int64_t{m_limit.milliseconds()} * 1'000'000);
    const timespec until{0, static_cast<long>(piece)};
    // Whatever ends it, the caller looks again.
    syscall(SYS_futex, word, FUTEX_WAIT, value, &until, nullptr, 0);
    m_piece = std::max(m_piece, std::min(2 * m_piece, kLongestPiece));
    return true;
}

void wakeSleepers(const void* word, int count) {
    syscall(SYS_futex, word, FUTEX_WAKE, count, nullptr, nullptr, 0);
}

}  // namespace ipc
