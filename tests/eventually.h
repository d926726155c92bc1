#pragma once

#include <chrono>
#include <functional>
#include <thread>

/// Waits for something that has to come true; the limit only ends a failing test.
inline bool eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 3000; ++i) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}
