#include "vintakd/viewer/framegeometry.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

bool bothZero(const std::array<double, 2>& pair) {
    return pair[0] == 0 && pair[1] == 0;
}

const std::array<double, 2>& spacingOf(const CFrameInfo& info) {
    if (!bothZero(info.pixelSpacing)) return info.pixelSpacing;
    if (!bothZero(info.imagerPixelSpacing)) return info.imagerPixelSpacing;
    return info.nominalScannedPixelSpacing;
}

bool allZero(const double (&vector)[3]) {
    return std::all_of(vector, vector + 3, [](double value) { return value == 0; });
}

/// Moves `position` along the normal of the image plane by the slices before this one.
void derivePosition(int frame, double spacingBetweenSlices, const std::string& orientation,
                    std::string& position) {
    double row[3], column[3], point[3], normal[3];
    parseOrientation(orientation, row, column);
    if (allZero(row) && allZero(column)) row[0] = column[1] = 1;
    parsePosition(position, point);
    if (!GetNormal(row, column, normal)) return;
    const double distance = (frame - 1) * spacingBetweenSlices;
    char text[256];
    std::snprintf(text, sizeof text, "%.14g\\%.14g\\%.14g", point[0] + distance * normal[0],
                  point[1] + distance * normal[1], point[2] + distance * normal[2]);
    position = text;
}

}  // namespace

FrameAttributes resolveFrame(int frame, const CFrameInfo* own, const CFrameInfo& shared) {
    const CFrameInfo& entry = own ? *own : shared;
    const auto from = [&](uint64_t flag) -> const CFrameInfo& { return entry.has(flag) ? entry : shared; };
    FrameAttributes result;
    result.rescaleIntercept = from(CFrameInfo::FlagRescaleIntercept).rescaleIntercept;
    result.rescaleSlope = from(CFrameInfo::FlagRescaleSlope).rescaleSlope;
    result.windowCenter = from(CFrameInfo::FlagWindowCenter).windowCenter;
    result.windowWidth = from(CFrameInfo::FlagWindowWidth).windowWidth;
    result.spacing = spacingOf(from(CFrameInfo::FlagPixelSpacing));
    result.imagePosition = from(CFrameInfo::FlagImagePosPatient).imagePositionPatient;
    result.imageOrientation = from(CFrameInfo::FlagImageOrientPatient).imageOrientationPatient;
    result.patientOrientation = from(CFrameInfo::FlagPatientOrient).patientOrientation;
    const double sliceSpacing = from(CFrameInfo::FlagSliceSpacing).spacingBetweenSlices;
    if (!entry.has(CFrameInfo::FlagImagePosPatient) && sliceSpacing != 0)
        derivePosition(frame, sliceSpacing, result.imageOrientation, result.imagePosition);
    return result;
}

double getNextValue(const std::string& text, size_t& pos) {
    const size_t start = std::min(pos, text.size());
    const size_t end = text.find('\\', start);
    const std::string value = text.substr(start, end == std::string::npos ? end : end - start);
    if (end != std::string::npos) pos = end + 1;
    return std::strtod(value.c_str(), nullptr);
}

void parsePosition(const std::string& text, double (&pos)[3]) {
    size_t at = 0;
    for (double& value : pos)
        value = getNextValue(text, at);
}

void parseOrientation(const std::string& text, double (&row)[3], double (&col)[3]) {
    size_t at = 0;
    for (double& value : row)
        value = getNextValue(text, at);
    for (double& value : col)
        value = getNextValue(text, at);
}

bool GetNormal(double (&a)[3], double (&b)[3], double (&n)[3]) {
    n[0] = a[1] * b[2] - a[2] * b[1];
    n[1] = a[2] * b[0] - a[0] * b[2];
    n[2] = a[0] * b[1] - a[1] * b[0];
    return n[0] * n[0] + n[1] * n[1] + n[2] * n[2] > 1.1920928955078125e-7;
}
