#include "imgproc/imageprocess.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcpixel.h>

#include <iostream>
#include <utility>

#include "hsutils/StageClock.h"
#include "hsutils/Utils.h"
#include "imgproc/elementvalues.h"
#include "imgproc/framereader.h"
#include "imgproc/framesequence.h"
#include "imgproc/imagechecks.h"
#include "imgproc/objectlimits.h"
#include "imgproc/objectscan.h"
#include "imgproc/operationallog.h"
#include "imgproc/pbrcontent.h"
#include "imgproc/rawimage.h"
#include "privateblock/privatetags.h"

namespace {

constexpr const char* kPbrContentSopClass = "2.25.0118999881999119725.1.0.1";

}  // namespace

CImageProcess::CImageProcess(DcmDataset* dataset, CImageMemory* memory, bool verbose, bool dumponly,
                             bool escapeNewLines, int specificFrame)
    : m_dataset(dataset),
      m_memory(memory),
      m_listing(std::cout, escapeNewLines),
      m_verbose(verbose),
      m_dumpOnly(dumponly),
      m_specificFrame(specificFrame) {
    CImageProcess::initFunction();
}

CImageProcess::~CImageProcess() = default;

CPbRContent* CImageProcess::createPbRContent() {
    return new CPbRContent(this, *m_dataset);
}

std::optional<int> CImageProcess::takeImages(std::string&) {
    return std::nullopt;
}

void CImageProcess::takeImage(const FrameFindings& findings) {
    ++m_imagesStarted;
    takeFindings(findings);
}

void CImageProcess::setPart(uint32_t first, uint32_t last) {
    m_part = {.first = first, .last = last};
    m_imagesStarted = static_cast<int>(first) - 1;
}

bool CImageProcess::postProcess(CExtractedData* data) {
    return data->postProcess() == 0;
}

bool CImageProcess::initProcess() {
    handlePrivateTags(m_dataset);
    return true;
}

bool CImageProcess::isIncluded(const DcmTag&) {
    return true;
}

int CImageProcess::process() {
    if (m_dataset == nullptr) {
        reportFailure("there is no data set");
        return 1;
    }
    if (!initProcess()) {
        reportFailure("the conversion cannot be set up", ErrorClass::other);
        return 1;
    }
    m_attributes.planarConfigurationPresent = false;
    if (const int failures = processDataItem(m_dataset)) return failures;
    if (finalizeProcess()) return 0;
    reportFailure("the private block cannot be written", ErrorClass::other);
    return 1;
}

int CImageProcess::processDataItem(DcmItem* item) {
    if (item == nullptr) return 1;
    m_pixelDataSeen = false;
    m_itemResult = 0;
    if (textOf(*item, DCM_SOPClassUID) == kPbrContentSopClass) m_itemResult += processPbRContent();
    parseTags(item, nullptr, this, fTagParserPreprocess);
    return m_itemResult;
}

bool CImageProcess::fTagParserPreprocess(IDicomTagParser2* parser) {
    auto& process = *static_cast<CImageProcess*>(parser);
    DcmElement* element = process.currentElement();
    if (element == nullptr) return true;
    if (process.m_verbose) process.printElement(element, 0);
    if (process.m_dumpOnly) return true;
    if (isForeignGroup(element->getGTag()) && !process.isIncluded(element->getTag())) parser->removeElement();
    return true;
}

void CImageProcess::setPhotometricInterpretation(std::string& value, DcmElement* element) {
    m_attributes.invertMonochrome = false;
    if (const auto kind = photometricKindOf(value)) {
        m_attributes.photometricKind = *kind;
        m_attributes.invertMonochrome =
            value == "MONOCHROME1" &&
            !checkSCDevice(m_attributes.scDeviceModelName, m_attributes.scDeviceSoftwareVersions);
    } else if (!value.empty()) {
        reportWarning(
            "Photometric Interpretation (0028,0004) \"" + printable(value) +
            "\" is not known: the samples are read as " +
            (m_attributes.photometricKind == PhotometricKind::Monochrome ? "grey" : "they were before"));
    }
    if (element != nullptr) {
        m_photometricElement = element;
        return;
    }
    const bool oneSample = m_attributes.photometricKind == PhotometricKind::Monochrome ||
                           m_attributes.photometricKind == PhotometricKind::PaletteColor;
    setSamplesPerPixel(oneSample ? 1 : 3, nullptr);
}

bool CImageProcess::checkSCDevice(const std::string& modelName, const std::string& softwareVersions) {
    return modelName == "Tarnoview" && softwareVersions == "1.0";
}

void CImageProcess::setSamplesPerPixel(unsigned short value, DcmElement* element) {
    if (element != nullptr) m_samplesPerPixelElement = element;
    m_attributes.samplesPerPixel = value;
}

int CImageProcess::processPbRContent() {
    CPbRContent content(this, *m_dataset);
    if (!content.init()) {
        reportFailure("the override item of the content object cannot be applied");
        return 1;
    }
    if (postProcess(&content)) return 0;
    reportFailure("the content object cannot be read or written");
    return 1;
}

int CImageProcess::processEncapsulatedDocument(DcmElement* element) {
    if (element == nullptr || m_dataset == nullptr || !isEncapsulatedPdf(*m_dataset)) return 0;
    const std::span<uint8_t> bytes = documentBytes(*element);
    if (bytes.empty()) {
        reportFailure("the encapsulated document is empty or cannot be read");
        return 1;
    }
    const auto length = static_cast<unsigned int>(bytes.size());
    const std::unique_ptr<CEncapsulatedDocument> document(createEncapsulatedDocument(DOCUMENT_PDF, length));
    if (document == nullptr || !document->init()) {
        reportFailure("no memory for the encapsulated document", ErrorClass::memory);
        return 1;
    }
    document->addContent(bytes.data(), length);
    if (postProcess(document.get())) return 0;
    reportFailure("the encapsulated document cannot be completed or written");
    return 1;
}

int CImageProcess::processImageElem(DcmElement* element, const DcmEVR&) {
    m_pixelDataSeen = true;
    if (RefusalText cause = whyNoImage(m_attributes, m_specificFrame); !cause.empty()) {
        const ErrorClass kind = cause.kind;
        reportFailure(std::move(cause), kind);
        return 1;
    }
    const bool named = m_photometricElement != nullptr && m_photometricElement->getLength() > 0;
    for (const std::string& doubt : doubtsAbout(m_attributes, named))
        reportWarning(doubt);
    m_overlays.expectInSamples(m_attributes.rows, m_attributes.columns);
    FrameReader frames(*m_dataset, *element);
    if (!allocateFrameBuffer(frames)) return 1;
    if (!m_attributes.planarConfigurationPresent && m_attributes.samplesPerPixel == 3)
        insertPlanarConfiguration(*m_dataset);

    std::string colorModel;
    const std::optional<int> taken = takeImages(colorModel);
    if (taken) setPhotometricInterpretation(colorModel, nullptr);
    const int result = taken ? *taken : processFrames(frames, *element, colorModel);
    m_rawImage.reset();
    restateDecodedAttributes(colorModel);
    if (m_dataset->getOriginalXfer() == EXS_JPEG2000)
        m_dataset->putAndInsertString(DCM_LossyImageCompression, "01");
    m_frameBuffer.release();
    return result;
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
                          std::to_string(objectlimits::kFrameBytes),
                      ErrorClass::limit);
        return false;
    }
    m_frameBuffer.allocate(size);
    frames.setBufferSize(static_cast<uint32_t>(size));
    return true;
}

int CImageProcess::processFrames(FrameReader& frames, DcmElement& element, std::string& colorModel) {
    FrameSequence sequence(frames, m_part, m_specificFrame);
    if (std::string cause = sequence.whyNotAlone(m_overlays.inSamples()); !cause.empty()) {
        reportFailure(std::move(cause));
        return 1;
    }
    int result = 1;
    do {
        std::string model;
        const OFCondition condition = readFrame(frames, sequence.index(), model);
        if (condition.bad()) {
            const RefusalText why = decodingFailure(condition, m_dataset->getOriginalXfer());
            const std::string& said = sequence.lost(why);
            OFLOG_ERROR(operationalLogger(), said);
            if (sequence.isFirst()) reportFailure(said, why.kind);
            break;
        }
        const InStage analysing(Stage::analyse);
        if (!sequence.decoded(model)) break;
        const int imagesBefore = m_imagesStarted;
        result = describeDecodedFrame(element, model) ? processImageBytes() : 1;
        if (m_imagesStarted > imagesBefore) {
            sequence.gaveImage();
        } else if (result == 0) {
            const std::string& said = sequence.gaveNone(whyNoImageCame(m_format, model));
            OFLOG_ERROR(operationalLogger(), said);
        }
    } while (result == 0 && sequence.next());
    colorModel = sequence.colorModel();
    if (result != 0) return result;
    FramesVerdict verdict = sequence.judge(m_imagesStarted);
    if (!verdict.warning.empty()) reportWarning(verdict.warning);
    if (verdict.failed) reportFailure(std::move(verdict.failure));
    return verdict.failed ? 1 : 0;
}

OFCondition CImageProcess::readFrame(FrameReader& frames, uint32_t index, std::string& colorModel) {
    const InStage decoding(Stage::decode);
    return frames.read(index, m_frameBuffer.data(), colorModel);
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
    if (RefusalText cause = whyTooLarge(m_attributes); !cause.empty()) {
        reportFailure(std::move(cause), ErrorClass::limit);
        return false;
    }
    m_format = formatOfFrame(m_attributes, element.getLength());
    // A header may promise more samples than a frame has bytes: what is not there is zero.
    m_frameBuffer.widen(m_format.bytes());
    return true;
}

int CImageProcess::processImageBytes() {
    if (m_format.bitsAllocated == 0 || m_format.bitsAllocated > 16) {
        reportFailure(
            "Bits Allocated (0028,0100) of " + std::to_string(m_format.bitsAllocated) + " is not supported",
            ErrorClass::unsupported);
        return 1;
    }
    return unpackFrame(m_format, m_frameBuffer.bytes(), m_overlays, *this) ? 0 : 1;
}

void CImageProcess::restateDecodedAttributes(const std::string& colorModel) {
    if (m_photometricElement != nullptr && !colorModel.empty())
        m_photometricElement->putString(colorModel.c_str());
    if (m_samplesPerPixelElement != nullptr)
        m_samplesPerPixelElement->putUint16(m_attributes.samplesPerPixel);
}

FrameContext CImageProcess::frameContext() {
    return {.pixelKind = m_pixelKind,
            .photometricKind = m_attributes.photometricKind,
            .rows = m_attributes.rows,
            .columns = m_attributes.columns,
            .samplesPerPixel = m_attributes.samplesPerPixel,
            .isSigned = m_attributes.isSigned(),
            .invert = m_attributes.invertMonochrome,
            .rescaleIntercept = m_attributes.rescaleIntercept,
            .rescaleSlope = m_attributes.rescaleSlope,
            .windowCenter = m_attributes.windowCenter,
            .windowWidth = m_attributes.windowWidth,
            .modality = m_attributes.modality,
            .memory = m_memory,
            .histogram = &m_histogram};
}

bool CImageProcess::imageStart() {
    if (m_attributes.photometricKind == PhotometricKind::Monochrome)
        m_pixelKind = monochromeKind(m_attributes.highBit);
    else
        m_pixelKind =
            m_attributes.planarConfiguration != 0 ? PixelKind::ColorPlanar : PixelKind::ColorInterleaved;
    const bool withoutBits = m_attributes.bitsStored == 0 && m_attributes.highBit == 0;
    if (withoutBits) m_pixelKind = monochromeKind(m_attributes.bitsAllocated);

    if (m_rawImage != nullptr) imageDone();
    ++m_imagesStarted;
    m_rawImage.reset(createRawImage());
    if (m_rawImage == nullptr) return false;
    if (withoutBits) m_rawImage->setBlank();
    if (m_rawImage->init()) return true;
    reportFailure("no memory for the samples of image " + std::to_string(m_imagesStarted),
                  ErrorClass::memory);
    return false;
}

void CImageProcess::imageDone() {
    if (m_rawImage == nullptr) return;
    if (!postProcess(m_rawImage.get())) {
        ++m_itemResult;
        reportFailure("image " + std::to_string(m_imagesStarted) + " cannot be completed or written",
                      ErrorClass::output);
    }
    if (m_rawImage->findings()) takeFindings(*m_rawImage->findings());
    m_rawImage.reset();
}

void CImageProcess::takeFindings(const FrameFindings& findings) {
    for (const FrameFindings::Families& width : findings.windowWidths)
        setPBPrefWindowWidth(width.a, width.b);
    for (const FrameFindings::Families& center : findings.windowCenters)
        setPBPrefWindowCenter(center.a, center.b);
    setPBMinValue(findings.minimum);
    setPBMaxValue(findings.maximum);
    setActualBitsUsed(findings.bitsUsed);
}

// The last steps of unpacked samples before the raw image takes them.

void CImageProcess::addSamples(unsigned short* samples, unsigned int count) {
    if (count == 0) return;
    switch (m_attributes.photometricKind) {
        case PhotometricKind::Monochrome:
            adjustWords(samples, count);
            if (m_frameBuffer.refills(samples, size_t{2} * count))
                m_rawImage->takeSamples(samples, count);
            else
                m_rawImage->addSamples(samples, count);
            break;
        case PhotometricKind::PaletteColor:
            addPaletteSamples(samples, count);
            break;
        default:
            reduceToBytes(m_format, std::span<unsigned short>(samples, count));
            adjustBytes(samples, count);
            m_rawImage->addByteSamples(samples, count);
            break;
    }
}

void CImageProcess::addSamples(unsigned char* samples, unsigned int count) {
    if (count == 0) return;
    if (m_format.highBit != 7 || m_format.bitsStored != 8)
        reduceToBytes(m_format, std::span<unsigned char>(samples, count));
    adjustBytes(samples, count);
    m_rawImage->addSamples(samples, count);
}

void CImageProcess::addPaletteSamples(const unsigned short* samples, unsigned int count) {
    for (unsigned int i = 0; i < count; ++i)
        for (int channel = 0; channel < 3; ++channel)
            m_rawImage->addSample(m_palette.at(channel, samples[i]));
}

void CImageProcess::addReferenceValues() {
    if (m_imagesStarted == 0) return;
    m_reference.store(*m_dataset, m_attributes.numberOfFrames, m_imagesStarted);
    m_dataset->putAndInsertUint16(DCM_PixelRepresentation, m_attributes.pixelRepresentation);
}

bool CImageProcess::finalizeProcess() {
    addReferenceValues();
    m_overlays.finish();
    if (m_overlays.store(*m_dataset)) return true;
    reportFailure("an overlay cannot be stored in the private block");
    return false;
}
