#include "imgproc/imageprocess.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <iostream>

#include "hsutils/Utils.h"
#include "imgproc/elementvalues.h"
#include "imgproc/pbrcontent.h"
#include "imgproc/rawimage.h"
#include "privateblock/privatedictionary.h"
#include "privateblock/privatetags.h"

namespace {

constexpr const char* kPbrContentSopClass = "2.25.0118999881999119725.1.0.1";

PixelKind monochromeKind(unsigned int bits) {
    if (bits <= 7) return PixelKind::Mono8;
    return bits <= 11 ? PixelKind::Mono12 : PixelKind::Mono16;
}

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

void CImageProcess::reportFailure(std::string cause) {
    if (m_failureCause.empty()) m_failureCause = std::move(cause);
}

void CImageProcess::reportWarning(const std::string& text) {
    if (std::find(m_warnings.begin(), m_warnings.end(), text) == m_warnings.end()) m_warnings.push_back(text);
}

CPbRContent* CImageProcess::createPbRContent() {
    return new CPbRContent(this, *m_dataset);
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

void CImageProcess::adjustWords(unsigned short*, unsigned int) {}
void CImageProcess::adjustBytes(unsigned short*, unsigned int) {}
void CImageProcess::adjustBytes(unsigned char*, unsigned int) {}

int CImageProcess::process() {
    if (m_dataset == nullptr) {
        reportFailure("there is no data set");
        return 1;
    }
    if (!initProcess()) {
        reportFailure("the conversion cannot be set up");
        return 1;
    }
    m_attributes.planarConfigurationPresent = false;
    if (const int failures = processDataItem(m_dataset)) return failures;
    if (finalizeProcess()) return 0;
    reportFailure("the private block cannot be written");
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
    const uint16_t group = element->getGTag();
    if ((group & 1) != 0 && group != kPrivateGroup && !process.isIncluded(element->getTag()))
        parser->removeElement();
    return true;
}

void CImageProcess::setPhotometricInterpretation(std::string& value, DcmElement* element) {
    m_attributes.invertMonochrome = false;
    if (value.compare(0, 10, "MONOCHROME") == 0) {
        m_attributes.photometricKind = PhotometricKind::Monochrome;
        m_attributes.invertMonochrome =
            value == "MONOCHROME1" &&
            !checkSCDevice(m_attributes.scDeviceModelName, m_attributes.scDeviceSoftwareVersions);
    } else if (value == "PALETTE COLOR") {
        m_attributes.photometricKind = PhotometricKind::PaletteColor;
    } else if (value == "RGB") {
        m_attributes.photometricKind = PhotometricKind::Rgb;
    } else if (value == "YBR_FULL") {
        m_attributes.photometricKind = PhotometricKind::YbrFull;
    } else if (value == "YBR_FULL_422") {
        m_attributes.photometricKind = PhotometricKind::YbrFull422;
    } else if (value == "YBR_PARTIAL_422") {
        m_attributes.photometricKind = PhotometricKind::YbrPartial422;
    } else if (value == "YBR_ICT") {
        m_attributes.photometricKind = PhotometricKind::YbrIct;
    } else if (value == "YBR_RCT") {
        m_attributes.photometricKind = PhotometricKind::YbrRct;
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
        reportFailure("no memory for the encapsulated document");
        return 1;
    }
    document->addContent(bytes.data(), length);
    if (postProcess(document.get())) return 0;
    reportFailure("the encapsulated document cannot be completed or written");
    return 1;
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
    reportFailure("no memory for the samples of image " + std::to_string(m_imagesStarted));
    return false;
}

void CImageProcess::imageDone() {
    if (m_rawImage == nullptr) return;
    if (!postProcess(m_rawImage.get())) {
        ++m_itemResult;
        reportFailure("image " + std::to_string(m_imagesStarted) + " cannot be completed or written");
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
