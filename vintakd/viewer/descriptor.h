#pragma once

#include <string>

#include "vintakd/viewer/framegeometry.h"
#include "vintakd/viewer/framepixels.h"

/// What the descriptor says of a frame beside its pixels.
struct DescribedFrame {
    int number = 1;                   ///< counted from 1
    std::string layout;               ///< "mono" or "bypixel"
    int sampleWidth = 8;              ///< 8 or 16: of the samples before they were packed
    std::string frameOfReferenceUID;  ///< (0020,0052)
    FrameAttributes attributes;
};

/// The frame's line of the descriptor, from which the viewer learns what the frame's files hold; with its
/// line feed. Control characters of texts become question marks: a line break would make a line of its own.
std::string descriptorLine(const DescribedFrame& frame, const FramePixels& pixels);
