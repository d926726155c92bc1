#include <dcmtk/dcmdata/dccodec.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcpixel.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include <algorithm>

#include "imgproc/framereader.h"
#include "imgproc/imageprocess.h"
#include "imgproc/objectlimits.h"
#include "imgproc/operationallog.h"
#include "imgproc/rawimage.h"

namespace {

bool isSubsampled(PhotometricKind kind) {
    return kind == PhotometricKind::YbrFull422 || kind == PhotometricKind::YbrPartial422;
}

/// Transfer syntaxes whose decoders deliver colour by plane.
bool storesPlanes(E_TransferSyntax xfer) {
    return xfer == EXS_RLELossless || xfer == EXS_JPEGLSLossless || xfer == EXS_JPEGLSLossy;
}

/// Why one frame of such an object is too large, as it comes or as it is kept for the viewer; empty when it
/// is not.
std::string oversize(const ImageAttributes& attributes) {
    const uint64_t samples = attributes.samples();
    const uint64_t bytes = (samples * attributes.bitsAllocated + 7) / 8;
    const uint64_t largest = std::max({bytes, samples, 3 * attributes.pixels()});
    if (largest <= objectlimits::kFrameBytes) return {};
    return "a frame of " + std::to_string(attributes.columns) + " x " + std::to_string(attributes.rows) +
           " pixels exceeds the limit of " + std::to_string(objectlimits::kFrameBytes) + " bytes";
}

/// Colour without Planar Configuration is taken as its transfer syntax usually has it; the decoders ask for
/// it.
void insertPlanarConfiguration(DcmDataset& dataset) {
    const Uint16 value = storesPlanes(dataset.getOriginalXfer()) ? 1 : 0;
    DCMDATA_WARN(
        "Non-compliant image: Samples Per Pixel (0028,002) = 3 and Planar Configuration (0028,0006) "
        "missing.");
    DCMDATA_WARN("This may break decompression. Inserting Planar Configuration value of " << value);
    dataset.putAndInsertUint16(DCM_PlanarConfiguration, value);
}

std::string decodingFailure(const OFCondition& condition, E_TransferSyntax xfer) {
    if (condition != EC_CannotChangeRepresentation) return condition.text();
    const std::string name = DcmXfer(xfer).getXferName();
    if (!DcmCodecList::canChangeCoding(xfer, EXS_LittleEndianExplicit))
        return "there is no decoder for " + name;
    // A decoder says the same of a frame that is not what the object promises.
    return "the " + name + " frame and the object's attributes contradict each other";
}

}  // namespace

int CImageProcess::processImageElem(DcmElement* element, const DcmEVR&) {
    m_pixelDataSeen = true;
    if (!checkPixelAttributes()) return 1;
    warnOfAttributes();
    m_overlays.expectInSamples(m_attributes.rows, m_attributes.columns);
    FrameReader frames(*m_dataset, *element);
    if (!allocateFrameBuffer(frames)) return 1;
    if (!m_attributes.planarConfigurationPresent && m_attributes.samplesPerPixel == 3)
        insertPlanarConfiguration(*m_dataset);

    std::string colorModel;
    const int result = processFrames(frames, *element, colorModel);
    m_rawImage.reset();
    restateDecodedAttributes(colorModel);
    if (m_dataset->getOriginalXfer() == EXS_JPEG2000)
        m_dataset->putAndInsertString(DCM_LossyImageCompression, "01");
    std::vector<uint8_t>().swap(m_frameBuffer);
    return result;
}

bool CImageProcess::checkPixelAttributes() {
    if (m_specificFrame >= 1 && m_specificFrame > m_attributes.numberOfFrames) {
        const std::string cause = "Invalid specific frame number " + std::to_string(m_specificFrame) +
                                  ". There are only " + std::to_string(m_attributes.numberOfFrames) +
                                  " frames in the object";
        DCMDATA_WARN(cause);
        reportFailure(cause);
        return false;
    }
    if (m_attributes.samples() == 0) {
        const char* cause =
            "PixelData present but one or more of Rows/Columns/SamplesPerPixel is invalid/zero";
        DCMDATA_ERROR(cause);
        reportFailure(cause);
        return false;
    }
    if (std::string cause = oversize(m_attributes); !cause.empty()) {
        reportFailure(std::move(cause));
        return false;
    }
    return true;
}

/// Attributes that make a picture which nobody may take for what the object shows.
void CImageProcess::warnOfAttributes() {
    if (m_attributes.bitsStored == 0)
        reportWarning("Bits Stored (0028,0101) is missing or 0: no bit of a sample is kept");
    if (m_photometricElement == nullptr || m_photometricElement->getLength() == 0)
        reportWarning("Photometric Interpretation (0028,0004) is missing");
}

bool CImageProcess::allocateFrameBuffer(FrameReader& frames) {
    uint64_t size = frames.frameSize();
    if (size == 0) {
        DCMDATA_WARN("Guessing uncompressed size");
        size = m_attributes.samples();
    }
    size += size % 2;
    if (size > objectlimits::kFrameBytes) {
        reportFailure("a frame of " + std::to_string(size) + " bytes exceeds the limit of " +
                      std::to_string(objectlimits::kFrameBytes));
        return false;
    }
    m_frameBuffer.assign(size, 0);
    frames.setBufferSize(static_cast<uint32_t>(size));
    return true;
}

int CImageProcess::processFrames(FrameReader& frames, DcmElement& element, std::string& colorModel) {
    const bool oneFrame = m_specificFrame >= 1;
    const uint32_t first = oneFrame ? static_cast<uint32_t>(m_specificFrame - 1) : 0;
    int result = 1;
    uint32_t images = 0;
    std::string missing;
    for (uint32_t index = first; index < frames.frameCount() || index == first; ++index) {
        const std::string frame =
            "frame " + std::to_string(index + 1) + " of " + std::to_string(frames.frameCount());
        std::string model;
        const OFCondition condition = frames.read(index, m_frameBuffer.data(), model);
        if (condition.bad()) {
            missing =
                frame + " cannot be decoded: " + decodingFailure(condition, m_dataset->getOriginalXfer());
            OFLOG_ERROR(operationalLogger(), missing);
            if (index == first) reportFailure(missing);
            break;
        }
        colorModel = model;
        const int imagesBefore = m_imagesStarted;
        result = describeDecodedFrame(element, model) ? processImageBytes() : 1;
        if (m_imagesStarted > imagesBefore) {
            ++images;
        } else if (result == 0) {
            missing = frame + " holds " + std::to_string(m_format.bytes()) + " bytes of " + model +
                      ", an image has " + std::to_string(m_format.imageSamples) + " samples: no image";
            OFLOG_ERROR(operationalLogger(), missing);
        }
        if (result != 0 || oneFrame) break;
    }
    return result == 0 ? judgeFrames(frames, images, missing) : result;
}

/// Whether `images` images are what the object declares: none is a failure, fewer frames or fragments that
/// belong to none are worth a warning. `missing` says of a frame that gave no image why.
int CImageProcess::judgeFrames(const FrameReader& frames, uint32_t images, const std::string& missing) {
    if (images == 0) {
        reportFailure(missing);
        return 1;
    }
    if (m_specificFrame >= 1) return 0;
    if (images < frames.frameCount())
        reportWarning(std::to_string(images) + " of " + std::to_string(frames.frameCount()) +
                      " frames were converted: " + missing);
    else if (const std::string surplus = frames.surplus(); !surplus.empty())
        reportWarning("the pixel data hold " + surplus + " more than the " +
                      std::to_string(frames.frameCount()) + " frames that the object declares");
    return 0;
}

/// Takes over what the decoder says about the frame in the buffer.
bool CImageProcess::describeDecodedFrame(DcmElement& element, std::string& colorModel) {
    setPhotometricInterpretation(colorModel, nullptr);
    if (m_attributes.photometricKind == PhotometricKind::PaletteColor) {
        if (const char* missing = m_palette.complete(*m_dataset)) {
            reportFailure(std::string("the object is PALETTE COLOR but has no usable ") + missing +
                          " palette");
            return false;
        }
    }
    if (std::string cause = oversize(m_attributes); !cause.empty()) {
        reportFailure(std::move(cause));
        return false;
    }
    const auto samples = static_cast<uint32_t>(m_attributes.samples());
    m_format = {.bitsAllocated = m_attributes.bitsAllocated,
                .bitsStored = m_attributes.bitsStored,
                .highBit = m_attributes.highBit,
                .isSigned = m_attributes.isSigned(),
                .photometricKind = m_attributes.photometricKind,
                .imageSamples = samples,
                .unpackedSamples = samples};
    if (isSubsampled(m_attributes.photometricKind)) {
        const uint64_t subsampled = 2 * m_attributes.pixels();
        m_format.unpackedSamples = static_cast<uint32_t>(subsampled);
        if (subsampled * m_attributes.numberOfFrames == element.getLength())
            m_format.imageSamples = m_format.unpackedSamples;
    }
    // A header may promise more samples than a frame has bytes: what is not there is zero.
    if (m_frameBuffer.size() < m_format.bytes()) m_frameBuffer.resize(m_format.bytes(), 0);
    return true;
}

int CImageProcess::processImageBytes() {
    if (m_format.bitsAllocated == 0 || m_format.bitsAllocated > 16) {
        reportFailure("Bits Allocated (0028,0100) of " + std::to_string(m_format.bitsAllocated) +
                      " is not supported");
        return 1;
    }
    return unpackFrame(m_format, m_frameBuffer, m_overlays, *this) ? 0 : 1;
}

void CImageProcess::restateDecodedAttributes(const std::string& colorModel) {
    if (m_photometricElement != nullptr && !colorModel.empty())
        m_photometricElement->putString(colorModel.c_str());
    if (m_samplesPerPixelElement != nullptr)
        m_samplesPerPixelElement->putUint16(m_attributes.samplesPerPixel);
}
