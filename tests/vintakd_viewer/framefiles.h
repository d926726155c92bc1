#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctk.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

class CVintakRawImage;

using Bytes = std::vector<std::uint8_t>;

/// Frames of test objects are converted into a folder of the test's own.
class FrameFilesTest : public testing::Test {
protected:
    FrameFilesTest();
    ~FrameFilesTest() override;

    /// One frame: bytesPerPixel 1 (8 bits stored), 2 (16 bits, MONOCHROME2) or 3 (RGB); samples in buffer
    /// order.
    void makeObject(int columns, int rows, int bytesPerPixel, const Bytes& samples,
                    const char* modality = "OT");
    /// Converts the object, or `dataset`, into PREFIX_1 and so on; the write mask is the request's. `look`
    /// sees every finished frame. Returns whether the conversion succeeded.
    bool convert(unsigned mask, bool noCached = false, DcmDataset* dataset = nullptr,
                 const std::function<void(CVintakRawImage&)>& look = nullptr);
    /// Content of PREFIX_1 + suffix.
    Bytes file(const std::string& suffix) const;
    bool exists(const std::string& suffix) const;
    /// Makes "thumbnail.conf" and points the environment to it.
    void configure(const std::string& text);

    DcmFileFormat m_object;
    std::filesystem::path m_folder;
};

/// A soft picture with some noise: samples of `bits` bits, from 0 up to the largest.
Bytes softPicture(int columns, int rows, int bytesPerPixel, int bits);
