#pragma once

#include <unistd.h>

#include <atomic>
#include <string>

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
