#pragma once

#include <pthread.h>
#include <semaphore.h>

#include <cstdint>
#include <cstring>
#include <string>

/// A peer of a channel region that knows nothing but byte offsets and the order of the exchange, as a program
/// that was built elsewhere would: it takes no line of the code under test. Waits without limit.
class RawPeer {
public:
    /// Where in a message a peer stands.
    enum class Place { flagSet, mutexHeld, arrived, insideChunks, beforeLastBarrier };

    explicit RawPeer(char* region) : m_region(region) {}
    virtual ~RawPeer() = default;

    void send(const std::string& text) {
        byteAt(128 + 8) = 1;
        reached(Place::flagSet);
        uint64_t remaining = text.size();
        size_t offset = 0;
        const auto writePart = [&] {
            const uint64_t count = remaining < kCapacity ? remaining : kCapacity;
            std::memcpy(m_region + 128 + 16, &remaining, 8);
            std::memcpy(m_region + 176, text.data() + offset, count);
            offset += count;
            remaining -= count;
        };
        writePart();
        sync();
        spin();
        while (remaining > 0) {
            writePart();
            reached(Place::insideChunks);
            spin();
            spin();
        }
        byteAt(128 + 8) = 0;
        reached(Place::beforeLastBarrier);
        spin();
    }

    std::string recv() {
        byteAt(128 + 9) = 1;
        reached(Place::flagSet);
        sync();
        uint64_t remaining = 0;
        std::memcpy(&remaining, m_region + 128 + 16, 8);
        std::string text;
        const auto readPart = [&] {
            const uint64_t count = remaining < kCapacity ? remaining : kCapacity;
            text.append(m_region + 176, count);
            remaining -= count;
        };
        readPart();
        spin();
        while (remaining > 0) {
            spin();
            readPart();
            reached(Place::insideChunks);
            spin();
        }
        byteAt(128 + 9) = 0;
        reached(Place::beforeLastBarrier);
        spin();
        return text;
    }

    uint32_t wordAt(size_t offset) const {
        uint32_t value = 0;
        std::memcpy(&value, m_region + offset, 4);
        return value;
    }

protected:
    /// Called in every message at each place, for tests that stop there.
    virtual void reached(Place) {}

private:
    static constexpr uint64_t kCapacity = 16384 - 176;

    volatile char& byteAt(size_t offset) { return m_region[offset]; }
    uint32_t* word(size_t offset) { return reinterpret_cast<uint32_t*>(m_region + offset); }

    void sync() {
        auto* mutex = reinterpret_cast<pthread_mutex_t*>(m_region + 8);
        auto* arrive = reinterpret_cast<sem_t*>(m_region + 48);
        auto* leave = reinterpret_cast<sem_t*>(m_region + 80);
        pthread_mutex_lock(mutex);
        reached(Place::mutexHeld);
        if (++*word(4) == *word(0)) {
            sem_post(arrive);
            sem_post(arrive);
        }
        pthread_mutex_unlock(mutex);
        reached(Place::arrived);
        sem_wait(arrive);
        pthread_mutex_lock(mutex);
        if (--*word(4) == 0) {
            sem_post(leave);
            sem_post(leave);
        }
        pthread_mutex_unlock(mutex);
        sem_wait(leave);
    }

    void spin() {
        const uint32_t before = __atomic_load_n(word(120), __ATOMIC_SEQ_CST);
        if (__atomic_fetch_add(word(116), 1, __ATOMIC_SEQ_CST) == *word(112) - 1) {
            __atomic_store_n(word(116), 0, __ATOMIC_SEQ_CST);
            __atomic_fetch_add(word(120), 1, __ATOMIC_SEQ_CST);
            return;
        }
        while (__atomic_load_n(word(120), __ATOMIC_SEQ_CST) == before)
            sched_yield();
    }

    char* m_region;
};
