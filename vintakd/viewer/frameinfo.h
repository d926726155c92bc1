#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcelem.h>

#include <array>
#include <cstdint>
#include <string>

/// Geometry and value attributes of one frame, or those that all frames share.
class CFrameInfo {
public:
    static constexpr uint64_t FlagWindowCenter = 0x001;
    static constexpr uint64_t FlagWindowWidth = 0x002;
    static constexpr uint64_t FlagRescaleSlope = 0x004;
    static constexpr uint64_t FlagRescaleIntercept = 0x008;
    static constexpr uint64_t FlagPixelSpacing = 0x010;
    static constexpr uint64_t FlagSliceThickness = 0x020;
    static constexpr uint64_t FlagSliceSpacing = 0x040;
    static constexpr uint64_t FlagPatientOrient = 0x100;
    static constexpr uint64_t FlagImageOrientPatient = 0x200;
    static constexpr uint64_t FlagImagePosPatient = 0x400;

    uint64_t flags = 0;                                  ///< which of the attributes below were read
    double windowCenter = 0;                             ///< (0028,1050)
    double windowWidth = 0;                              ///< (0028,1051)
    double rescaleIntercept = 0;                         ///< (0028,1052)
    double rescaleSlope = 1.0;                           ///< (0028,1053)
    std::array<double, 2> pixelSpacing{};                ///< (0028,0030), mm: between rows, between columns
    std::array<double, 2> imagerPixelSpacing{};          ///< (0018,1164), the same order; no flag
    std::array<double, 2> nominalScannedPixelSpacing{};  ///< (0018,2010), the same order; no flag
    double sliceThickness = 0;                           ///< (0018,0050), mm
    double spacingBetweenSlices = 0;                     ///< (0018,0088), mm
    std::string imagePositionPatient;                    ///< (0020,0032), values separated by "\"
    std::string imageOrientationPatient;                 ///< (0020,0037), values separated by "\"
    std::string patientOrientation;                      ///< (0020,0020), values separated by "\"

    bool has(uint64_t flag) const { return (flags & flag) != 0; }

    /// Store the first value of `element` as a number, or its whole text, and set `flag`. Nothing changes
    /// when the element cannot be read; an empty element reads as 0.
    void readNumber(DcmElement& element, double CFrameInfo::*field, uint64_t flag);
    void readText(DcmElement& element, std::string CFrameInfo::*field, uint64_t flag);
};

/// Reads one functional group macro, a member of a functional groups item, into `info`. Elements that are no
/// such macro change nothing; a later value overwrites an earlier one.
void readFrameData(DcmElement& element, CFrameInfo& info);
