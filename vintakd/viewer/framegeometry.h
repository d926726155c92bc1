#pragma once

#include <array>
#include <cstddef>
#include <string>

#include "vintakd/viewer/frameinfo.h"

/// The attributes of one frame after its own and the shared ones were put together.
struct FrameAttributes {
    double rescaleIntercept = 0;
    double rescaleSlope = 1.0;
    double windowCenter = 0;
    double windowWidth = 0;
    std::array<double, 2> spacing{};  ///< mm: between rows, between columns
    std::string imagePosition;  ///< "x\y\z" in mm, derived from the slice spacing where the frame has none
    std::string imageOrientation;
    std::string patientOrientation;
};

/// Resolves frame `frame` (counted from 1): its entry where it has one (null for none), else `shared`; what
/// the entry lacks comes from `shared`.
FrameAttributes resolveFrame(int frame, const CFrameInfo* own, const CFrameInfo& shared);

/// The number in `text` from `pos` to the next "\"; `pos` moves past it. The last number is returned again
/// and again; what is no number reads as 0.
double getNextValue(const std::string& text, size_t& pos);

/// Three numbers of `text` (Image Position).
void parsePosition(const std::string& text, double (&pos)[3]);

/// Six numbers of `text` (Image Orientation): direction of the rows, then of the columns.
void parseOrientation(const std::string& text, double (&row)[3], double (&col)[3]);

/// n = a x b, not normalised; false when a and b are (nearly) parallel.
bool GetNormal(double (&a)[3], double (&b)[3], double (&n)[3]);
