#include "imgproc/imageprocess.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <iostream>

#include "hsutils/Utils.h"
#include "imgproc/pbrcontent.h"
#include "imgproc/rawimage.h"
#include "imgproc/valuetext.h"
#include "privateblock/privatetags.h"

namespace {

constexpr const char* pbrContentSopClass = "2.25.0118999881999119725.1.0.1";
constexpr uint16_t ownPrivateGroup = 0xF215;

PixelKind monochromeKind(unsigned int bits) {
    if (bits <= 7) return PixelKind::Mono8;
    return bits <= 11 ? PixelKind::Mono12 : PixelKind::Mono16;
}

}  // namespace

CImageProcess::CImageProcess(DcmDataset* dataset, CImageMemory* memory, bool verbose, bool dumponly,
                             bool escapeNewLines, int specificFrame)
    : m_dataset(dataset),
      m_memory(memory),
      m_output(&std::cout),
      m_verbose(verbose),
      m_dumpOnly(dumponly),
      m_escapeNewLines(escapeNewLines),
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
    return new CPbRContent(this);
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
    m_planarConfigurationPresent = false;
    if (const int failures = processDataItem(m_dataset)) return failures;
    if (finalizeProcess()) return 0;
    reportFailure("the private block cannot be written");
    return 1;
}

int CImageProcess::processDataItem(DcmItem* item) {
    if (item == nullptr) return 1;
    m_pixelDataSeen = false;
    m_itemResult = 0;
    if (textOf(*item, DCM_SOPClassUID) == pbrContentSopClass) m_itemResult += processPbRContent();
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
    if ((group & 1) != 0 && group != ownPrivateGroup && !process.isIncluded(element->getTag()))
        parser->removeElement();
    return true;
}

void CImageProcess::setPhotometricInterpretation(std::string& value, DcmElement* element) {
    m_invertMonochrome = false;
    if (value.compare(0, 10, "MONOCHROME") == 0) {
        m_photometricKind = PhotometricKind::Monochrome;
        m_invertMonochrome =
            value == "MONOCHROME1" && !checkSCDevice(m_scDeviceModelName, m_scDeviceSoftwareVersions);
    } else if (value == "PALETTE COLOR") {
        m_photometricKind = PhotometricKind::PaletteColor;
    } else if (value == "RGB") {
        m_photometricKind = PhotometricKind::Rgb;
    } else if (value == "YBR_FULL") {
        m_photometricKind = PhotometricKind::YbrFull;
    } else if (value == "YBR_FULL_422") {
        m_photometricKind = PhotometricKind::YbrFull422;
    } else if (value == "YBR_PARTIAL_422") {
        m_photometricKind = PhotometricKind::YbrPartial422;
    } else if (value == "YBR_ICT") {
        m_photometricKind = PhotometricKind::YbrIct;
    } else if (value == "YBR_RCT") {
        m_photometricKind = PhotometricKind::YbrRct;
    } else if (!value.empty()) {
        reportWarning("Photometric Interpretation (0028,0004) \"" + printable(value) +
                      "\" is not known: the samples are read as " +
                      (m_photometricKind == PhotometricKind::Monochrome ? "grey" : "they were before"));
    }
    if (element != nullptr) {
        m_photometricElement = element;
        return;
    }
    const bool oneSample = m_photometricKind == PhotometricKind::Monochrome ||
                           m_photometricKind == PhotometricKind::PaletteColor;
    setSamplesPerPixel(oneSample ? 1 : 3, nullptr);
}

bool CImageProcess::checkSCDevice(const std::string& modelName, const std::string& softwareVersions) {
    return modelName == "Tarnoview" && softwareVersions == "1.0";
}

void CImageProcess::setSamplesPerPixel(unsigned short value, DcmElement* element) {
    if (element != nullptr) m_samplesPerPixelElement = element;
    m_samplesPerPixel = value;
}

bool CImageProcess::imageStart() {
    if (m_photometricKind == PhotometricKind::Monochrome)
        m_pixelKind = monochromeKind(m_highBit);
    else
        m_pixelKind = m_planarConfiguration != 0 ? PixelKind::ColorPlanar : PixelKind::ColorInterleaved;
    const bool withoutBits = m_bitsStored == 0 && m_highBit == 0;
    if (withoutBits) m_pixelKind = monochromeKind(m_bitsAllocated);

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
    m_rawImage.reset();
}
