#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcelem.h>
#include <dcmtk/dcmdata/dcsequen.h>

#include <array>
#include <cstdint>
#include <optional>

/// One item of the Sequence of Ultrasound Regions (0018,6011).
struct UltrasoundRegionInfo {
    uint32_t presence;                 ///< bit 0 for the first member below, bit 11 for the last: it was read
    uint32_t regionLocationMinX0;      ///< (0018,6018)
    uint32_t regionLocationMinY0;      ///< (0018,601A)
    uint32_t regionLocationMaxX1;      ///< (0018,601C)
    uint32_t regionLocationMaxY1;      ///< (0018,601E)
    int32_t referencePixelX0;          ///< (0018,6020)
    int32_t referencePixelY0;          ///< (0018,6022)
    uint16_t physicalUnitsXDirection;  ///< (0018,6024); 3 is centimetres
    uint16_t physicalUnitsYDirection;  ///< (0018,6026)
    double referencePixelPhysicalValueX;  ///< (0018,6028)
    double referencePixelPhysicalValueY;  ///< (0018,602A)
    double physicalDeltaX;                ///< (0018,602C), units a pixel
    double physicalDeltaY;                ///< (0018,602E)
};

/// Stores the element in the member of `info` that it belongs to; other elements change nothing. Always true.
bool readUltrasoundRegionData(DcmElement* element, UltrasoundRegionInfo* info);

/// The pixel spacing in millimetres that the regions agree on: horizontal (delta X) first. None when a region
/// is not in centimetres in both directions, when both deltas of a region differ from those of the first, or
/// when the deltas are 0.
std::optional<std::array<double, 2>> spacingOfUltrasoundRegions(DcmSequenceOfItems& regions);
