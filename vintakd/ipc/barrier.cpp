#include "vintakd/ipc/barrier.h"

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/interprocess/exceptions.hpp>
#include <cerrno>
#include <ctime>

#include "vintakd/ipc/ipcexceptions.h"

namespace ipc {

using boost::interprocess::interprocess_exception;
using boost::interprocess::lock_exception;
using boost::posix_time::ptime;

namespace {

timespec toTimespec(const ptime& time) {
    const auto sinceEpoch = time - ptime(boost::gregorian::date(1970, 1, 1));
    timespec result{};
    result.tv_sec = sinceEpoch.total_seconds();
    result.tv_nsec = sinceEpoch.total_nanoseconds() % 1'000'000'000;
    return result;
}

bool take(sem_t* semaphore) {
    int value = 0;
    sem_getvalue(semaphore, &value);
    return value > 0 && sem_trywait(semaphore) == 0;
}

// To leave without a withdrawal would leave the count out of step for ever: the mutex is waited for longer
// than whoever holds it needs for a few instructions, however short the caller's own time is. Only a holder
// that died there keeps it longer.
timeout forWithdrawal(timeout limit) {
    constexpr timeout kHolderDied{1000};
    return limit.milliseconds() > 0 && limit.milliseconds() < kHolderDied.milliseconds() ? kHolderDied
                                                                                         : limit;
}

}  // namespace

void pthread::MyMutex::init() {
    pthread_mutexattr_t attributes;
    if (pthread_mutexattr_init(&attributes) != 0) {
        throw interprocess_exception("pthread_mutexattr_xxxx failed");
    }
    const bool shared = pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED) == 0;
    const bool initialised = shared && pthread_mutex_init(&m_mutex, &attributes) == 0;
    pthread_mutexattr_destroy(&attributes);
    if (!shared) throw interprocess_exception("pthread_mutexattr_xxxx failed");
    if (!initialised) throw interprocess_exception("pthread_mutex_init failed");
}

bool pthread::MyMutex::tryLock() {
    return pthread_mutex_trylock(&m_mutex) == 0;
}

void pthread::MyMutex::lock() {
    if (pthread_mutex_lock(&m_mutex) != 0) throw lock_exception();
}

bool pthread::MyMutex::timed_lock(const ptime& deadline) {
    if (deadline.is_pos_infinity()) {
        lock();
        return true;
    }
    const timespec until = toTimespec(deadline);
    const int result = pthread_mutex_timedlock(&m_mutex, &until);
    if (result == 0) return true;
    if (result == ETIMEDOUT) return false;
    throw lock_exception();
}

void Semaphore::init() {
    if (sem_init(&m_semaphore, 1, 0) != 0) {
        throw interprocess_exception(boost::interprocess::error_info(errno));
    }
}

void Semaphore::post() {
    if (sem_post(&m_semaphore) != 0) throw interprocess_exception(boost::interprocess::error_info(errno));
}

void wait(Semaphore& semaphore, timeout limit, Looking::Kind kind) {
    if (Looking::until(kind, [&semaphore] { return take(semaphore.native()); })) return;
    if (limit.milliseconds() <= 0) {
        while (sem_wait(semaphore.native()) != 0) {
        }
        return;
    }
    // Not by the wall clock: whoever sets it back must not make the wait longer by as much.
    const timespec until = monotonicAfter(int64_t{limit.milliseconds()} * 1'000'000);
    while (sem_clockwait(semaphore.native(), CLOCK_MONOTONIC, &until) != 0)
        if (errno == ETIMEDOUT) throw TimeoutException();
}

void barrier::init() {
    m_parties = 2;
    m_count = 0;
    m_mutex.init();
    try {
        m_arrive.init();
        try {
            m_leave.init();
        } catch (...) {
            m_arrive.destroy();
            throw;
        }
    } catch (...) {
        m_mutex.destroy();
        throw;
    }
}

void barrier::destroy() {
    m_leave.destroy();
    m_arrive.destroy();
    m_mutex.destroy();
}

void barrier::lockMutex(timeout limit) {
    if (Looking::until(Looking::Kind::inside, [this] { return m_mutex.tryLock(); })) return;
    bool locked = true;
    try {
        if (limit.milliseconds() > 0) {
            locked = m_mutex.timed_lock(limit.deadline());
        } else {
            m_mutex.lock();
        }
    } catch (const interprocess_exception&) {
        locked = false;
    }
    if (!locked) throw TimeoutException();
}

// A unit for each party is posted and taken. The last one need not fetch its own, which leaves one to post.
void barrier::postOthers(Semaphore& semaphore) {
    try {
        for (uint32_t i = 1; i < m_parties; ++i)
            semaphore.post();
    } catch (...) {
        m_mutex.unlock();
        throw;
    }
}

// The other party may complete the crossing between our time-out and our taking the mutex. Its unit then lies
// in the semaphore, and to withdraw would leave that unit behind for the next crossing: so look once more
// first.
template <class Withdraw>
void barrier::waitOrWithdraw(Semaphore& semaphore, timeout limit, Looking::Kind kind, Withdraw withdraw) {
    try {
        wait(semaphore, limit, kind);
    } catch (const TimeoutException&) {
        lockMutex(forWithdrawal(limit));
        const bool crossed = semaphore.tryWait();
        if (!crossed) withdraw();
        m_mutex.unlock();
        if (!crossed) throw;
    }
}

void barrier::phase1(timeout limit) {
    lockMutex(limit);
    const bool last = ++m_count == m_parties && m_parties != 0;
    if (last) postOthers(m_arrive);
    m_mutex.unlock();
    if (last) return;
    waitOrWithdraw(m_arrive, limit, Looking::Kind::arrival, [this] { --m_count; });
}

void barrier::phase2(timeout limit) {
    lockMutex(limit);
    const bool last = --m_count == 0 && m_parties != 0;
    if (last) postOthers(m_leave);
    m_mutex.unlock();
    if (last) return;
    waitOrWithdraw(m_leave, limit, Looking::Kind::inside, [this] { ++m_count; });
}

void SpinBarrier::init() {
    m_generation.store(0);
    m_parties = 2;
    m_arrived.store(0);
}

void SpinBarrier::sync(timeout limit, std::atomic<uint32_t>* sleepers) {
    const uint32_t generationBefore = m_generation.load();
    uint32_t before = m_arrived.fetch_add(1);
    // A peer of another make that ran out of time in the moment of our arrival took its own back after we had
    // completed the crossing for both.
    if (before == UINT32_MAX) before = m_arrived.fetch_add(1);
    if (before == m_parties - 1) {
        m_arrived.store(0);
        m_generation.fetch_add(1);
        if (sleepers && sleepers->load() != 0) wakeSleepers(&m_generation, 1);
        return;
    }
    const auto crossed = [&] { return m_generation.load() != generationBefore; };
    if (Looking::until(Looking::Kind::inside, crossed)) return;
    if (sleepers) sleepers->fetch_add(1);
    Sleeping sleeping(Sleeping::On::barrier, limit);
    while (!crossed() && sleeping.whileIs(m_generation, generationBefore)) {
    }
    if (sleepers) sleepers->fetch_sub(1);
    if (!crossed() && withdraw(generationBefore)) throw TimeoutException();
}

// Takes our arrival back; false when the peer arrived after all. A count of two or none means that the peer
// is just completing the crossing: however long it is kept from the processor, the generation will advance.
// And a count of one may be the peer's arrival at the next barrier, which has to be given back.
bool SpinBarrier::withdraw(uint32_t generationBefore) {
    constexpr timeout kPeerDied{10'000};  // between two instructions, so that nobody will ever advance it
    Sleeping sleeping(Sleeping::On::flag, kPeerDied);
    do {
        if (m_generation.load() != generationBefore) return false;
        uint32_t arrived = m_arrived.load();
        if (arrived == 0 || arrived >= m_parties) continue;
        if (!m_arrived.compare_exchange_strong(arrived, arrived - 1)) continue;
        if (m_generation.load() == generationBefore) return true;
        m_arrived.fetch_add(1);
        return false;
    } while (sleeping.whileIs(m_generation, generationBefore));
    return true;
}

}  // namespace ipc
