#pragma once

#include <pthread.h>
#include <semaphore.h>

#include <atomic>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <cstdint>

#include "vintakd/ipc/patience.h"
#include "vintakd/ipc/timeout.h"

namespace ipc {

namespace pthread {

/// A process-shared pthread mutex in shared memory; adds no field to it.
class MyMutex {
public:
    /// Initialises the mutex; throws boost::interprocess::interprocess_exception.
    void init();
    void destroy() { pthread_mutex_destroy(&m_mutex); }

    bool tryLock();
    /// Throws boost::interprocess::lock_exception.
    void lock();
    /// False when `deadline` (UTC) passes first; plus infinity waits for ever. Throws lock_exception.
    bool timed_lock(const boost::posix_time::ptime& deadline);
    void unlock() { pthread_mutex_unlock(&m_mutex); }

private:
    pthread_mutex_t m_mutex;
};

}  // namespace pthread

/// A process-shared unnamed POSIX semaphore in shared memory; adds no field to it.
class Semaphore {
public:
    /// Initialises the semaphore with 0; throws boost::interprocess::interprocess_exception with the errno.
    void init();
    void destroy() { sem_destroy(&m_semaphore); }

    /// Throws boost::interprocess::interprocess_exception.
    void post();
    bool tryWait() { return sem_trywait(&m_semaphore) == 0; }
    sem_t* native() { return &m_semaphore; }

private:
    sem_t m_semaphore;
};

/// Takes one unit of `semaphore`; throws TimeoutException after `limit` (0 or below: never). A signal does
/// not end the wait. `kind` says of which waits it is one.
void wait(Semaphore& semaphore, timeout limit, Looking::Kind kind);

/// The blocking two-party barrier at the start of a channel region. A crossing is phase1 followed by phase2;
/// phase2 keeps the first to leave until the other has left too, so that no party can lap the other.
class barrier {
public:
    /// Throws boost::interprocess::interprocess_exception; nothing is left initialised then.
    void init();
    void destroy();

    /// Arrives and waits for the other party; on TimeoutException the arrival has been taken back.
    void phase1(timeout limit);
    /// Leaves and waits for the other party to leave; on TimeoutException the departure has been taken back.
    void phase2(timeout limit);

    uint32_t count() const { return m_count; }

private:
    void lockMutex(timeout limit);
    void postOthers(Semaphore& semaphore);
    template <class Withdraw>
    void waitOrWithdraw(Semaphore& semaphore, timeout limit, Looking::Kind kind, Withdraw withdraw);

    uint32_t m_parties;
    uint32_t m_count;
    pthread::MyMutex m_mutex;
    Semaphore m_arrive;
    Semaphore m_leave;
};

/// The spinning two-party barrier used inside a message: no system call on the fast road.
class SpinBarrier {
public:
    void init();

    /// Meets the other party; on TimeoutException the arrival has been taken back. `sleepers`, where there is
    /// one, counts the parties that sleep in here. It only serves to wake them: one too many, of a party that
    /// died, does no harm, and a party that sees none or knows nothing of it is found all the same, a moment
    /// later.
    void sync(timeout limit, std::atomic<uint32_t>* sleepers = nullptr);

    uint32_t arrived() const { return m_arrived.load(); }
    uint32_t generation() const { return m_generation.load(); }

private:
    bool withdraw(uint32_t generationBefore);

    uint32_t m_parties;
    std::atomic<uint32_t> m_arrived;
    std::atomic<uint32_t> m_generation;
};

static_assert(sizeof(pthread::MyMutex) == sizeof(pthread_mutex_t));
static_assert(sizeof(Semaphore) == sizeof(sem_t));
static_assert(sizeof(SpinBarrier) == 12);

}  // namespace ipc
