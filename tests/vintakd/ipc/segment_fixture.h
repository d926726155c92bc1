#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

#include "tests/shared/testing.h"
#include "vintakd/ipc/GatewayBase.h"

/// A segment name of this test alone, removed with the object.
class SegmentName {
public:
    SegmentName() : m_name("vintakd_test_" + std::to_string(getpid()) + "_" + std::to_string(s_counter++)) {}
    ~SegmentName() { GatewayBase::remove(m_name.c_str()); }
    const char* c_str() const { return m_name.c_str(); }

private:
    static inline std::atomic<int> s_counter{0};
    std::string m_name;
};

inline constexpr uint64_t kTestChannelSize = 16384;

inline uint64_t segmentSize(uint64_t channels) {
    return GatewayBase::getFirstChannelOffset(channels) + channels * kTestChannelSize;
}

/// The segment's bytes, mapped by name and size alone.
class RawSegment {
public:
    explicit RawSegment(const std::string& name) {
        const int file = shm_open(("/" + name).c_str(), O_RDWR | O_CLOEXEC, 0);
        struct stat status {};
        fstat(file, &status);
        m_mode = status.st_mode & 0777;
        m_size = static_cast<size_t>(status.st_size);
        m_bytes = static_cast<char*>(mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
        close(file);
    }
    ~RawSegment() { munmap(m_bytes, m_size); }
    RawSegment(const RawSegment&) = delete;
    RawSegment& operator=(const RawSegment&) = delete;

    template <typename T>
    T at(size_t offset) const {
        T value;
        std::memcpy(&value, m_bytes + offset, sizeof value);
        return value;
    }
    char* bytes() const { return m_bytes; }
    size_t size() const { return m_size; }
    unsigned mode() const { return m_mode; }

private:
    char* m_bytes;
    size_t m_size;
    unsigned m_mode;
};
