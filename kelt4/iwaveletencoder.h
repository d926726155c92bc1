#pragma once

#include "kelt4/aligned.h"
#include "kelt4/bitwriter.h"

namespace dvq::kelt4 {

/// Transforms one frame and codes its coefficients.
///
/// One thread uses an encoder; stop() and kill() only set flags and may come from another thread.
class IWaveletEncoder : public CAligned<8> {
public:
    virtual ~IWaveletEncoder() = default;

    /// Transforms the samples that copyAndConvertFrom() has loaded.
    virtual void transform() = 0;
    /// Loads and transforms component planes of 8-bit (1) or 16-bit (2) samples, rows following each other
    /// directly. Throws the integer 4 for 3 bytes per pixel (load those with copyAndConvertFrom()); other
    /// values do nothing.
    virtual void transformFrom(const void* src, int bytesPerPixel) = 0;
    /// Codes the coefficients and writes the stream.
    /// Returns 0 when done, 8 when paused: after the row that stop() interrupts or after row -rowLimit when
    /// rowLimit is negative. Throws the integer 3 when the output's capacity is reached.
    virtual int writeWavelet(CBitWriter& out, int rowLimit) = 0;
    /// Loads pixel-interleaved samples; with 3 bytes per pixel through the colour transform (three components
    /// only). Returns the position after the samples it took.
    virtual const void* copyAndConvertFrom(const void* src, int bytesPerPixel) = 0;
    virtual void stop() = 0;
    virtual void kill() = 0;
};

}  // namespace dvq::kelt4
