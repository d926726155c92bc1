#include "imgproc/objectcheck.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>

#include "imgproc/framereader.h"
#include "imgproc/frameshape.h"
#include "imgproc/objectlimits.h"

namespace {

using Refusal = std::optional<RefusalText>;

Refusal checkFrameSize(const FrameShape& shape) {
    const uint64_t bytes =
        std::max(shape.decodedBytes(), shape.pixels() * std::max<Uint16>(shape.samples, 3));
    if (bytes <= objectlimits::kFrameBytes) return std::nullopt;
    return RefusalText("a frame of " + std::to_string(shape.columns) + " x " + std::to_string(shape.rows) +
                           " pixels, " + std::to_string(shape.samples) + " samples of " +
                           std::to_string(shape.allocated) + " bits exceeds the limit of " +
                           std::to_string(objectlimits::kFrameBytes) + " bytes",
                       ErrorClass::limit);
}

Refusal checkBits(const FrameShape& shape) {
    if (shape.allocated == 0 || shape.allocated > 16)
        return RefusalText(
            "Bits Allocated (0028,0100) of " + std::to_string(shape.allocated) + " is not supported",
            ErrorClass::unsupported);
    if (shape.stored > shape.allocated)
        return "Bits Stored (0028,0101) of " + std::to_string(shape.stored) +
               " exceeds Bits Allocated (0028,0100) of " + std::to_string(shape.allocated);
    return std::nullopt;
}

Refusal checkFirstFrame(DcmDataset& dataset, DcmElement& pixelData) {
    const FrameReader frames(dataset, pixelData);
    if (frames.compressed() || frames.nativeFrameSize() <= pixelData.getLength()) return std::nullopt;
    return "the pixel data holds " + std::to_string(pixelData.getLength()) + " bytes, but a frame needs " +
           std::to_string(frames.nativeFrameSize());
}

}  // namespace

std::optional<RefusalText> checkObject(DcmDataset& dataset) {
    DcmElement* pixelData = nullptr;
    if (dataset.findAndGetElement(DCM_PixelData, pixelData).bad()) return std::nullopt;
    const FrameShape shape(dataset);
    // Without a size there is no frame to check; the conversion says so.
    if (shape.pixels() == 0 || shape.samples == 0) return std::nullopt;
    if (auto refusal = checkBits(shape)) return refusal;
    if (auto refusal = checkFrameSize(shape)) return refusal;
    return checkFirstFrame(dataset, *pixelData);
}
