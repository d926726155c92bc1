#pragma once

#include <atomic>
#include <memory>

#include "kelt4/chunkstore.h"
#include "kelt4/iwaveletencoder.h"
#include "kelt4/kernel.h"

namespace dvq::kelt4 {

struct FrameScratch;

/// 16-bit samples below this are transformed in 16-bit lanes. The greatest sum of two coefficients that a
/// lifting step forms has at most 7.9487 times the greatest sample without roundings: half of what the
/// weights' magnitudes add up to in the frames' worst place, because those of a detail cancel out. Each
/// rounding is off by at most a half, and with the weights that they reach that sum by, all of them together
/// by at most 146. That makes 32,696 for 12 bits; a lane holds 32,765 and what rounding adds.
inline constexpr unsigned kNarrowSamples = 4096;
/// Up to here 16-bit lanes are tried first: real frames do not come near the worst ones. The pass watches
/// what it forms, and a frame that does not fit is done again in wider lanes.
inline constexpr unsigned kGuardedSamples = 8192;

/// The encoder of every day: loading, transforming and coding a frame are one streaming pass of a kernel over
/// its rows, so that no coefficient plane exists. Writing the stream then only orders the chunks and joins
/// their bits.
///
/// Its memory beside source and output is about that of the coded frame. It comes from the calling thread's
/// store and goes back there, so that a thread that codes many frames allocates only for the first.
class FastEncoder : public IWaveletEncoder {
public:
    FastEncoder(const Kernel& kernel, int bytesPerPixel, int width, int height);
    ~FastEncoder() override;

    /// Nothing is left to do after the loading.
    void transform() override {}
    void transformFrom(const void* src, int bytesPerPixel) override;
    int writeWavelet(CBitWriter& out, int rowLimit) override;
    const void* copyAndConvertFrom(const void* src, int bytesPerPixel) override;
    void stop() override { m_stop = true; }
    void kill() override;

private:
    void encode(const void* src, int bytesPerPixel);
    bool passRows(int rowLimit);
    int findTopPlane() const;
    uint64_t estimateBits(int topPlane) const;
    void writeStream(CBitWriter& out, int topPlane) const;

    const Kernel& m_kernel;
    int m_components;
    int m_width;
    int m_height;
    int m_levels;
    std::atomic<bool> m_stop{false};
    bool m_kill = false;
    /// The chunks are not empty any more.
    bool m_coded = false;
    int m_resumeRow = 0;
    int m_resumeComponent = 0;
    std::unique_ptr<FrameScratch> m_scratch;
};

}  // namespace dvq::kelt4
