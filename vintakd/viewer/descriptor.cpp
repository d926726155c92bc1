// The descriptor: one line of text for each frame, from which the viewer learns what the frame's files hold.
#include "hsutils/Utils.h"
#include "vintakd/viewer/vintakprocess.h"
#include "vintakd/viewer/vintakrawimage.h"

namespace {

/// The width that the viewer is told: narrow samples count as bytes whether or not they were packed.
int describedWidth(const CVintakRawImage& raw) {
    return raw.sampleWidth() == 16 && raw.bitsUsed() <= 8 ? 8 : raw.sampleWidth();
}

}  // namespace

int CVintakRawImage::printDesc(std::FILE* file) {
    const CVintakProcess* process = viewerProcess();
    if (!process || !file) return 1;
    const FrameAttributes attributes = process->frameAttributes(kind());
    const double width = context().invert ? -windowWidth() : windowWidth();
    // A line break in a value would make a line of its own.
    const auto text = [](const std::string& value) { return printable(value); };
    char numbers[512];
    std::snprintf(numbers, sizeof numbers, "%d %d %d %s %d %d %g %g %g %g %g %g ", kind(), context().columns,
                  context().rows, layout().c_str(), describedWidth(*this), bitsUsed(), rescaleIntercept(),
                  rescaleSlope(), width, windowCenter(), attributes.spacing[0], attributes.spacing[1]);
    const std::string line = numbers + text(process->frameOfReferenceUID()) + ' ' +
                             text(attributes.imagePosition) + ' ' + text(attributes.imageOrientation) + ' ' +
                             text(attributes.patientOrientation) + '\n';
    process->quota().take(line.size());
    std::fwrite(line.data(), 1, line.size(), file);
    return 1;
}
