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

uint64_t bytesOfSamples(unsigned int bits, uint64_t samples) {
    return bits / 8 * samples + (bits % 8 * samples + 7) / 8;
}

}  // namespace

int CImageProcess::processImageElem(DcmElement* element, const DcmEVR&) {
    m_pixelDataSeen = true;
    if (!checkPixelAttributes()) return 1;
    warnOfAttributes();
    prepareEmbeddedOverlays();
    FrameReader frames(*m_dataset, *element);
    if (!allocateFrameBuffer(frames)) return 1;
    repairPlanarConfiguration();

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
    if (m_specificFrame >= 1 && m_specificFrame > m_numberOfFrames) {
        const std::string cause = "Invalid specific frame number " + std::to_string(m_specificFrame) +
                                  ". There are only " + std::to_string(m_numberOfFrames) +
                                  " frames in the object";
        DCMDATA_WARN(cause);
        reportFailure(cause);
        return false;
    }
    const uint64_t samples = uint64_t{m_samplesPerPixel} * m_rows * m_columns;
    if (samples == 0) {
        const char* cause =
            "PixelData present but one or more of Rows/Columns/SamplesPerPixel is invalid/zero";
        DCMDATA_ERROR(cause);
        reportFailure(cause);
        return false;
    }
    if (!framesFit(samples)) return false;
    m_frameSampleCount = m_unpackSampleCount = static_cast<uint32_t>(samples);
    return true;
}

/// Attributes that make a picture which nobody may take for what the object shows.
void CImageProcess::warnOfAttributes() {
    if (m_bitsStored == 0)
        reportWarning("Bits Stored (0028,0101) is missing or 0: no bit of a sample is kept");
    if (m_photometricElement == nullptr || m_photometricElement->getLength() == 0)
        reportWarning("Photometric Interpretation (0028,0004) is missing");
}

/// Whether one frame of so many samples stays below the limit, as it comes and as it is kept for the viewer.
bool CImageProcess::framesFit(uint64_t samples) {
    const uint64_t pixels = uint64_t{m_rows} * m_columns;
    const uint64_t largest = std::max({bytesOfSamples(m_bitsAllocated, samples), samples, 3 * pixels});
    if (largest <= objectlimits::frameBytes) return true;
    reportFailure("a frame of " + std::to_string(m_columns) + " x " + std::to_string(m_rows) +
                  " pixels exceeds the limit of " + std::to_string(objectlimits::frameBytes) + " bytes");
    return false;
}

void CImageProcess::prepareEmbeddedOverlays() {
    for (int slot = 0; slot < m_overlays.count(); ++slot) {
        COverlay* overlay = m_overlays.at(slot);
        if (overlay->hasData()) continue;
        overlay->setRows(m_rows);
        overlay->setColumns(m_columns);
        const uint64_t bits = uint64_t{m_rows} * m_columns;
        overlay->initData(static_cast<unsigned int>((bits + 7) / 8), OVERLAY_READ_CHOOSE);
        if (overlay->bitPosition() < 16) m_imageOverlayMask |= 1u << overlay->bitPosition();
    }
}

bool CImageProcess::allocateFrameBuffer(FrameReader& frames) {
    uint64_t size = frames.frameSize();
    if (size == 0) {
        DCMDATA_WARN("Guessing uncompressed size");
        size = uint64_t{m_columns} * m_rows * m_samplesPerPixel;
    }
    size += size % 2;
    if (size > objectlimits::frameBytes) {
        reportFailure("a frame of " + std::to_string(size) + " bytes exceeds the limit of " +
                      std::to_string(objectlimits::frameBytes));
        return false;
    }
    m_frameBuffer.assign(size, 0);
    frames.setBufferSize(static_cast<uint32_t>(size));
    return true;
}

void CImageProcess::repairPlanarConfiguration() {
    if (m_planarConfigurationPresent || m_samplesPerPixel != 3) return;
    const Uint16 value = storesPlanes(m_dataset->getOriginalXfer()) ? 1 : 0;
    DCMDATA_WARN(
        "Non-compliant image: Samples Per Pixel (0028,002) = 3 and Planar Configuration (0028,0006) "
        "missing.");
    DCMDATA_WARN("This may break decompression. Inserting Planar Configuration value of " << value);
    m_dataset->putAndInsertUint16(DCM_PlanarConfiguration, value);
}

std::string CImageProcess::decodingFailure(const OFCondition& condition) const {
    if (condition != EC_CannotChangeRepresentation) return condition.text();
    const E_TransferSyntax xfer = m_dataset->getOriginalXfer();
    const std::string name = DcmXfer(xfer).getXferName();
    if (!DcmCodecList::canChangeCoding(xfer, EXS_LittleEndianExplicit))
        return "there is no decoder for " + name;
    // A decoder says the same of a frame that is not what the object promises.
    return "the " + name + " frame and the object's attributes contradict each other";
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
            missing = frame + " cannot be decoded: " + decodingFailure(condition);
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
            missing = frame + " holds " + std::to_string(m_frameByteCount) + " bytes of " + model +
                      ", an image has " + std::to_string(m_frameSampleCount) + " samples: no image";
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
    if (m_photometricKind == PhotometricKind::PaletteColor && !preparePalettes()) return false;
    const uint64_t pixels = uint64_t{m_rows} * m_columns;
    const uint64_t samples = m_samplesPerPixel * pixels;
    if (!framesFit(samples)) return false;
    m_frameSampleCount = m_unpackSampleCount = static_cast<uint32_t>(samples);
    if (isSubsampled(m_photometricKind)) {
        m_unpackSampleCount = static_cast<uint32_t>(2 * pixels);
        if (2 * pixels * static_cast<uint64_t>(m_numberOfFrames) == element.getLength())
            m_frameSampleCount = m_unpackSampleCount;
    }
    m_frameByteCount = static_cast<uint32_t>(bytesOfSamples(m_bitsAllocated, m_unpackSampleCount));
    // A header may promise more samples than a frame has bytes: what is not there is zero.
    if (m_frameBuffer.size() < m_frameByteCount) m_frameBuffer.resize(m_frameByteCount, 0);
    return true;
}

void CImageProcess::restateDecodedAttributes(const std::string& colorModel) {
    if (m_photometricElement != nullptr && !colorModel.empty())
        m_photometricElement->putString(colorModel.c_str());
    if (m_samplesPerPixelElement != nullptr) m_samplesPerPixelElement->putUint16(m_samplesPerPixel);
}
