#pragma once

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>

/// Small value helpers that every room may use.

/// Whether a sanitizer is built in: its runtime takes memory, address space and system calls of its own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

/// The integer part of `value`; what 32 bits cannot hold becomes the smallest integer, as the processor has
/// it.
inline int truncated(double value) {
    constexpr double kLimit = 2147483648.0;
    if (!(value > -kLimit - 1.0 && value < kLimit)) return std::numeric_limits<int>::min();
    return static_cast<int>(value);
}

/// Sleeps for `nanoseconds`, which must stay below one second.
inline void mynanosleep(uint64_t nanoseconds) {
    timespec request{0, static_cast<long>(nanoseconds)};
    nanosleep(&request, nullptr);
}

/// Sleeps for `milliseconds`; a signal ends the sleep early.
inline void mymilisleep(uint64_t milliseconds) {
    timespec request{static_cast<time_t>(milliseconds / 1000),
                     static_cast<long>(milliseconds % 1000 * 1'000'000)};
    nanosleep(&request, nullptr);
}

/// The kernel's thread id of the caller.
inline int mygettid() {
    return static_cast<int>(syscall(SYS_gettid));
}

/// memcmp of two ranges, or -255 when their lengths differ.
inline int mymemcmp(const void* a, size_t aLength, const void* b, size_t bLength) {
    if (aLength != bLength) return -255;
    return aLength == 0 ? 0 : std::memcmp(a, b, aLength);
}

/// The monotonic clock in nanoseconds.
inline int64_t nanoTime() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

inline double nanoToSec(int64_t nanoseconds) {
    return static_cast<double>(nanoseconds) / 1e9;
}

inline double nanoToMilisec(int64_t nanoseconds) {
    return static_cast<double>(nanoseconds) / 1e6;
}

/// `text` on one line: with a question mark for each control character.
inline std::string printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }, '?');
    return text;
}

/// A text value of an object without what pads it: up to its first NUL, then without the blanks at either
/// end.
inline std::string unpadded(std::string_view value) {
    value = value.substr(0, value.find('\0'));
    const size_t first = value.find_first_not_of(' ');
    if (first == std::string_view::npos) return {};
    return std::string(value.substr(first, value.find_last_not_of(' ') + 1 - first));
}

/// The smallest multiple of `multiple` (not 0) that is not below `value`.
inline uint64_t roundUpTo(uint64_t value, uint64_t multiple) {
    return (multiple + value - 1) / multiple * multiple;
}
