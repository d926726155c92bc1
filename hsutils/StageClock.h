#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "hsutils/Utils.h"

/// What a request spends its time on. A moment belongs to one stage alone: the innermost that was entered.
enum class Stage : uint8_t {
    load,     ///< the object's file is looked over and parsed
    walk,     ///< the data set is gone through; what else there is to do about an object
    decode,   ///< frames become samples
    analyse,  ///< samples are unpacked, counted, shifted and narrowed
    code,     ///< streams and thumbnails are made
    write,    ///< files are written
    none,     ///< anything else
};
inline constexpr size_t kStages = static_cast<size_t>(Stage::none);

inline const char* nameOf(Stage value) {
    constexpr const char* kNames[kStages + 1] = {"load", "walk",  "decode", "analyse",
                                                 "code", "write", "none"};
    return kNames[static_cast<size_t>(value)];
}

/// The time of one request by stages, of one thread. Each change of stage reads the clock once; while the
/// clock stands nothing is read.
class StageClock {
public:
    using Times = std::array<int64_t, kStages>;  ///< ns

    /// What tells the time, in ns and never 0, where it is not to be the monotonic clock.
    void useClock(int64_t (*clock)()) { m_clock = clock; }

    void start() {
        m_times = {};
        m_stage = Stage::none;
        m_since = m_clock();
    }
    void stop() {
        enter(Stage::none);
        m_since = 0;
    }
    /// The stage until now.
    Stage enter(Stage next) {
        const Stage before = m_stage;
        m_stage = next;
        if (m_since == 0) return before;
        const int64_t now = m_clock();
        if (before != Stage::none) m_times[static_cast<size_t>(before)] += now - m_since;
        m_since = now;
        return before;
    }
    const Times& times() const { return m_times; }

private:
    int64_t (*m_clock)() = nanoTime;
    Times m_times{};
    Stage m_stage = Stage::none;
    int64_t m_since = 0;  ///< 0: the clock stands
};

/// The calling thread's clock.
inline StageClock& stageClock() {
    thread_local StageClock clock;
    return clock;
}

/// A stage for a scope.
class InStage {
public:
    explicit InStage(Stage stage) : m_before(stageClock().enter(stage)) {}
    ~InStage() { stageClock().enter(m_before); }
    InStage(const InStage&) = delete;
    InStage& operator=(const InStage&) = delete;

private:
    Stage m_before;
};
