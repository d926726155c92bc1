#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "imgproc/histogram.h"
#include "imgproc/pixelkinds.h"

class CImageMemory;

/// What a raw image needs to know of its object and the frame in work, and what it works with.
struct FrameContext {
    PixelKind pixelKind = PixelKind::Mono8;
    PhotometricKind photometricKind = PhotometricKind::Monochrome;
    uint16_t rows = 0;
    uint16_t columns = 0;
    uint16_t samplesPerPixel = 1;
    bool isSigned = false;
    bool invert = false;  ///< small values are bright: samples are turned over
    double rescaleIntercept = 0.0;
    double rescaleSlope = 1.0;
    double windowCenter = 0.0;
    double windowWidth = 0.0;
    std::string modality;             ///< (0008,0060), chooses among the histogram's windows
    CImageMemory* memory = nullptr;   ///< borrowed; gives and takes back the samples' buffer
    CHistogram* histogram = nullptr;  ///< borrowed; counts this frame from init() to postProcess()
};

/// What a completed frame taught about its object, in stored or rescaled values.
struct FrameFindings {
    /// A number by each of the histogram's families.
    struct Families {
        int32_t a;
        int32_t b;
    };

    int32_t minimum = 0;  ///< of the stored values; the largest for inverted frames
    int32_t maximum = 0;
    int bitsUsed = 0;  ///< that the value range needs
    std::array<Families, CHistogram::kLevelCount> windowWidths{};
    std::array<Families, CHistogram::kLevelCount> windowCenters{};
};
