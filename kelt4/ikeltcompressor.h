#pragma once

#include <cstddef>

namespace dvq::kelt4 {

/// What a caller may ask of a compressor. Status values: -1 created, 4 coding (and the final value when the
/// output's capacity was reached), 8 paused, 0 complete.
class IKeltCompressor {
public:
    virtual ~IKeltCompressor() = default;

    /// Codes the frame, or goes on after a pause; returns the status.
    virtual int compress(int rowLimit) = 0;
    /// Pauses compress() after the row it is at.
    virtual void stop() = 0;
    /// As stop(); a transform under way ends too.
    virtual void kill() = 0;
    /// Memory of the payload, 8-byte aligned; null on failure.
    virtual void* allocBlock(size_t size) = 0;
    virtual void freeBlock(void* block) = 0;
};

}  // namespace dvq::kelt4
