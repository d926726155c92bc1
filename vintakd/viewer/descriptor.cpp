#include "vintakd/viewer/descriptor.h"

#include <cstdio>

#include "hsutils/Utils.h"

namespace {

/// The width that the viewer is told: narrow samples count as bytes whether or not they were packed.
int describedWidth(int sampleWidth, int bitsUsed) {
    return sampleWidth == 16 && bitsUsed <= 8 ? 8 : sampleWidth;
}

}  // namespace

std::string descriptorLine(const DescribedFrame& frame, const FramePixels& pixels) {
    const FrameAttributes& attributes = frame.attributes;
    char numbers[512];
    std::snprintf(numbers, sizeof numbers, "%d %d %d %s %d %d %g %g %g %g %g %g ", frame.number,
                  pixels.columns, pixels.rows, frame.layout.c_str(),
                  describedWidth(frame.sampleWidth, pixels.bitsUsed), pixels.bitsUsed,
                  pixels.rescaleIntercept, pixels.rescaleSlope, pixels.windowWidth, pixels.windowCenter,
                  attributes.spacing[0], attributes.spacing[1]);
    return numbers + printable(frame.frameOfReferenceUID) + ' ' + printable(attributes.imagePosition) + ' ' +
           printable(attributes.imageOrientation) + ' ' + printable(attributes.patientOrientation) + '\n';
}
