#include "imgproc/imagechecks.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include <algorithm>

#include "hsutils/Utils.h"
#include "imgproc/objectlimits.h"

namespace {

bool isSubsampled(PhotometricKind kind) {
    return kind == PhotometricKind::YbrFull422 || kind == PhotometricKind::YbrPartial422;
}

/// Transfer syntaxes whose decoders deliver colour by plane.
bool storesPlanes(E_TransferSyntax xfer) {
    return xfer == EXS_RLELossless || xfer == EXS_JPEGLSLossless || xfer == EXS_JPEGLSLossy;
}

}  // namespace

RefusalText whyNoImage(const ImageAttributes& attributes, int specificFrame) {
    if (specificFrame >= 1 && specificFrame > attributes.numberOfFrames) {
        std::string cause = "Invalid specific frame number " + std::to_string(specificFrame) +
                            ". There are only " + std::to_string(attributes.numberOfFrames) +
                            " frames in the object";
        DCMDATA_WARN(cause);
        return RefusalText(std::move(cause), ErrorClass::request);
    }
    if (attributes.samples() == 0) {
        const char* cause =
            "PixelData present but one or more of Rows/Columns/SamplesPerPixel is invalid/zero";
        DCMDATA_ERROR(cause);
        return cause;
    }
    return whyTooLarge(attributes);
}

RefusalText whyTooLarge(const ImageAttributes& attributes) {
    const uint64_t samples = attributes.samples();
    const uint64_t bytes = (samples * attributes.bitsAllocated + 7) / 8;
    const uint64_t largest = std::max({bytes, samples, 3 * attributes.pixels()});
    if (largest <= objectlimits::kFrameBytes) return "";
    return RefusalText("a frame of " + std::to_string(attributes.columns) + " x " +
                           std::to_string(attributes.rows) + " pixels exceeds the limit of " +
                           std::to_string(objectlimits::kFrameBytes) + " bytes",
                       ErrorClass::limit);
}

std::vector<std::string> doubtsAbout(const ImageAttributes& attributes, bool hasColorModel) {
    std::vector<std::string> doubts;
    if (attributes.bitsStored == 0)
        doubts.emplace_back("Bits Stored (0028,0101) is missing or 0: no bit of a sample is kept");
    if (!hasColorModel) doubts.emplace_back("Photometric Interpretation (0028,0004) is missing");
    return doubts;
}

std::string whyNoImageCame(const PixelFormat& format, const std::string& colorModel) {
    return "holds " + std::to_string(format.bytes()) + " bytes of " + printable(colorModel) +
           ", an image has " + std::to_string(format.imageSamples) + " samples";
}

void insertPlanarConfiguration(DcmDataset& dataset) {
    const Uint16 value = storesPlanes(dataset.getOriginalXfer()) ? 1 : 0;
    DCMDATA_WARN(
        "Non-compliant image: Samples Per Pixel (0028,002) = 3 and Planar Configuration (0028,0006) "
        "missing.");
    DCMDATA_WARN("This may break decompression. Inserting Planar Configuration value of " << value);
    dataset.putAndInsertUint16(DCM_PlanarConfiguration, value);
}

PixelFormat formatOfFrame(const ImageAttributes& attributes, uint32_t pixelDataBytes) {
    const auto samples = static_cast<uint32_t>(attributes.samples());
    PixelFormat format{.bitsAllocated = attributes.bitsAllocated,
                       .bitsStored = attributes.bitsStored,
                       .highBit = attributes.highBit,
                       .isSigned = attributes.isSigned(),
                       .photometricKind = attributes.photometricKind,
                       .imageSamples = samples,
                       .unpackedSamples = samples};
    if (isSubsampled(attributes.photometricKind)) {
        const uint64_t subsampled = 2 * attributes.pixels();
        format.unpackedSamples = static_cast<uint32_t>(subsampled);
        if (subsampled * attributes.numberOfFrames == pixelDataBytes)
            format.imageSamples = format.unpackedSamples;
    }
    return format;
}
