#pragma once

#include <memory>

#include "kelt4/bitkeltwriter.h"
#include "kelt4/ikeltcompressor.h"
#include "kelt4/iwaveletencoder.h"
#include "kelt4/keltheader.h"
#include "kelt4/kernel.h"

namespace dvq::kelt4 {

/// Compresses one frame without loss into a payload: a 16-byte header and a progressive bit stream of which
/// every prefix can be decoded.
///
/// Usage: construct, compress(0), take payload() and payloadSize(). One thread uses a compressor; only stop()
/// and kill() may come from others. Memory that cannot be had is reported as std::bad_alloc.
class CKeltCompressor : public IKeltCompressor, public CKeltHeader {
public:
    /// pixels: height rows of width pixels without gaps, bytesPerPixel 1 (8-bit grey), 2 (16-bit grey in host
    /// order, 2-byte aligned) or 3 (RGB interleaved). They are read here and not needed afterwards. bitsUsed
    /// is stored in the header only. width and height come from the frame's Columns (0028,0011) and Rows
    /// (0028,0010). With other values of bytesPerPixel, or a side outside 0 to 65535, nothing is coded:
    /// isSupported() is false and compress() returns -1. Throws std::invalid_argument when the kernel's
    /// environment variable names no usable kernel.
    CKeltCompressor(const void* pixels, int bytesPerPixel, int bitsUsed, int width, int height)
        : CKeltCompressor(pixels, bytesPerPixel, bitsUsed, width, height, activeKernel()) {}
    /// The same with a kernel of the caller's choice.
    CKeltCompressor(const void* pixels, int bytesPerPixel, int bitsUsed, int width, int height,
                    const Kernel& kernel);
    ~CKeltCompressor() override;

    CKeltCompressor(const CKeltCompressor&) = delete;
    CKeltCompressor& operator=(const CKeltCompressor&) = delete;

    /// rowLimit: 0 for no limit; -y pauses after row y of each component.
    /// Returns 0 (complete), 4 (the payload is a prefix of the stream, cut at the capacity) or 8 (paused).
    int compress(int rowLimit) override;
    void stop() override;
    void kill() override;
    /// Blocks must be releasable with free(). Overrides keep to that.
    void* allocBlock(size_t size) override;
    void freeBlock(void* block) override;

    bool isSupported() const { return m_encoder != nullptr; }
    int status() const { return m_status; }
    const CKeltHeader& header() const { return *this; }

    /// Limits the stream (the payload without its header) to a number of bytes. Before compress() only.
    void limitStream(size_t bytes) { m_output.fixSize(bytes); }

    /// The payload, owned by the compressor; null before compress() has returned 0 or 4.
    const unsigned char* payload() const { return m_output.block(); }
    /// Bytes of the payload: the header and the stream's bits rounded up.
    size_t payloadSize() const;
    /// Hands the payload to the caller, who releases it with free().
    unsigned char* detachPayload() { return m_output.detach(); }

private:
    std::unique_ptr<IWaveletEncoder> m_encoder;
    int m_status = -1;
    CBitKeltWriter m_output;
};

}  // namespace dvq::kelt4
