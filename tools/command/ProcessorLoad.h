#pragma once

#include <cstdint>
#include <optional>

/// What the machine's processors have to do, all processes together.
class ProcessorLoad {
public:
    ProcessorLoad() : m_last(read()) {}

    /// The share of the processors' time since the last call, or since this object was made, in which they
    /// had nothing to do or waited for a disk: 0 to 1. Nothing where the system does not say.
    std::optional<double> idleShare();

private:
    /// Since the machine was started, in the system's clock ticks.
    struct Times {
        uint64_t idle = 0;
        uint64_t all = 0;
    };

    static Times read();

    Times m_last;
};
