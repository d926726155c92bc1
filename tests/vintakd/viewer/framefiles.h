#pragma once

#include <cstdint>

#include "tests/vintakd/viewer/conversion.h"

using Bytes = std::vector<uint8_t>;

/// Objects of one frame, and the files that belong to it.
class FrameFilesTest : public ConversionTest {
protected:
    /// One frame: bytesPerPixel 1 (8 bits stored), 2 (16 bits, MONOCHROME2) or 3 (RGB); samples in buffer
    /// order.
    void makeObject(int columns, int rows, int bytesPerPixel, const Bytes& samples,
                    const char* modality = "OT");
    /// Converts the object, or `dataset`; the write mask is the request's. `look` sees every finished frame.
    /// Returns whether the conversion succeeded.
    bool convert(unsigned mask, bool noCached = false, DcmDataset* dataset = nullptr,
                 const std::function<void(CVintakRawImage&)>& look = nullptr);
    Bytes file(const std::string& suffix) const;
    /// Makes "thumbnail.conf" and points the environment to it.
    void configure(const std::string& text);

private:
    std::string place(const std::string& suffix) const;

    ImageShape m_shape;
    Bytes m_samples;
    std::string m_modality;
    Outcome m_outcome;
};

/// A soft picture with some noise: samples of `bits` bits, from 0 up to the largest.
Bytes softPicture(int columns, int rows, int bytesPerPixel, int bits);
