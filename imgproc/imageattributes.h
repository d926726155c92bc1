#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "imgproc/pixelkinds.h"

/// What the elements of a data set say about its images; where one is missing, its default stands. Colour
/// model, samples per pixel and pixel representation are brought in line with each decoded frame.
struct ImageAttributes {
    uint16_t rows = 0;                 ///< (0028,0010)
    uint16_t columns = 0;              ///< (0028,0011)
    uint16_t samplesPerPixel = 1;      ///< (0028,0002)
    uint16_t numberOfFrames = 1;       ///< (0028,0008), or Number of Slices (0054,0081)
    uint16_t bitsAllocated = 0;        ///< (0028,0100)
    uint16_t bitsStored = 0;           ///< (0028,0101)
    uint16_t highBit = 0;              ///< (0028,0102)
    uint16_t pixelRepresentation = 0;  ///< (0028,0103), 1: signed
    uint16_t planarConfiguration = 0;  ///< (0028,0006)
    bool planarConfigurationPresent = false;
    PhotometricKind photometricKind = PhotometricKind::Monochrome;  ///< (0028,0004)
    bool invertMonochrome = false;                                  ///< MONOCHROME1: small values bright
    double rescaleIntercept = 0.0;                                  ///< (0028,1052)
    double rescaleSlope = 1.0;                                      ///< (0028,1053)
    double windowCenter = 0.0;                                      ///< (0028,1050)
    double windowWidth = 0.0;                                       ///< (0028,1051)
    std::array<double, 2> pixelSpacing{};  ///< (0028,0030), mm: [0] between rows, [1] between columns
    std::string modality;                  ///< (0008,0060)
    std::string scDeviceModelName;         ///< (0018,1018)
    std::string scDeviceSoftwareVersions;  ///< (0018,1019)

    bool isSigned() const { return pixelRepresentation == 1; }
    uint64_t pixels() const { return uint64_t{rows} * columns; }
    /// Samples of one frame.
    uint64_t samples() const { return samplesPerPixel * pixels(); }
};
