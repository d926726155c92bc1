#include <cstdlib>

#include "imgproc/imageprocess.h"
#include "imgproc/valuetext.h"

// Handlers that take one attribute into a field of the process. The toolkit's getters decide what a value
// that cannot be read leaves behind.

namespace {

CImageProcess& processOf(IDicomTagParser2* parser) {
    return *static_cast<CImageProcess*>(parser);
}

std::string firstValue(IDicomTagParser2* parser) {
    return textOf(*processOf(parser).currentElement()).value_or("");
}

/// Assigns value number `position` of a decimal string when it can be read; an empty element reads as 0.
void readDecimal(IDicomTagParser2* parser, unsigned long position, double& number) {
    DcmElement* element = processOf(parser).currentElement();
    OFString text;
    const bool readable = element->getOFString(text, position).good();
    if (readable || (position == 0 && element->getLength() == 0)) number = std::strtod(text.c_str(), nullptr);
}

}  // namespace

void CImageProcess::fTag2DCM_Modality(IDicomTagParser2* parser) {
    processOf(parser).m_modality = firstValue(parser);
}

void CImageProcess::fTag2DCM_SecondaryCaptureDeviceManufacturerModelName(IDicomTagParser2* parser) {
    processOf(parser).m_scDeviceModelName = firstValue(parser);
}

void CImageProcess::fTag2DCM_SecondaryCaptureDeviceSoftwareVersions(IDicomTagParser2* parser) {
    processOf(parser).m_scDeviceSoftwareVersions = firstValue(parser);
}

void CImageProcess::fTag2DCM_SamplesPerPixel(IDicomTagParser2* parser) {
    CImageProcess& process = processOf(parser);
    uint16_t value = process.m_samplesPerPixel;
    process.currentElement()->getUint16(value);
    process.setSamplesPerPixel(value, process.currentElement());
}

void CImageProcess::fTag2DCM_PhotometricInterpretation(IDicomTagParser2* parser) {
    std::string value = firstValue(parser);
    processOf(parser).setPhotometricInterpretation(value, processOf(parser).currentElement());
}

void CImageProcess::fTag2DCM_PlanarConfiguration(IDicomTagParser2* parser) {
    CImageProcess& process = processOf(parser);
    process.currentElement()->getUint16(process.m_planarConfiguration);
    process.m_planarConfigurationPresent = true;
}

void CImageProcess::fTag2DCM_NumberOfFrames(IDicomTagParser2* parser) {
    Sint32 value = 0;
    if (processOf(parser).currentElement()->getSint32(value).bad()) value = 0;
    processOf(parser).m_numberOfFrames = static_cast<uint16_t>(value);
}

void CImageProcess::fTag2DCM_Rows(IDicomTagParser2* parser) {
    processOf(parser).currentElement()->getUint16(processOf(parser).m_rows);
}

void CImageProcess::fTag2DCM_Columns(IDicomTagParser2* parser) {
    processOf(parser).currentElement()->getUint16(processOf(parser).m_columns);
}

void CImageProcess::fTag2DCM_PixelSpacing(IDicomTagParser2* parser) {
    readDecimal(parser, 0, processOf(parser).m_pixelSpacing[0]);
    readDecimal(parser, 1, processOf(parser).m_pixelSpacing[1]);
}

void CImageProcess::fTag2DCM_BitsAllocated(IDicomTagParser2* parser) {
    processOf(parser).currentElement()->getUint16(processOf(parser).m_bitsAllocated);
}

void CImageProcess::fTag2DCM_BitsStored(IDicomTagParser2* parser) {
    processOf(parser).currentElement()->getUint16(processOf(parser).m_bitsStored);
}

void CImageProcess::fTag2DCM_HighBit(IDicomTagParser2* parser) {
    processOf(parser).currentElement()->getUint16(processOf(parser).m_highBit);
}

void CImageProcess::fTag2DCM_PixelRepresentation(IDicomTagParser2* parser) {
    processOf(parser).currentElement()->getUint16(processOf(parser).m_pixelRepresentation);
}

void CImageProcess::fTag2DCM_WindowCenter(IDicomTagParser2* parser) {
    readDecimal(parser, 0, processOf(parser).m_windowCenter);
}

void CImageProcess::fTag2DCM_WindowWidth(IDicomTagParser2* parser) {
    readDecimal(parser, 0, processOf(parser).m_windowWidth);
}

void CImageProcess::fTag2DCM_RescaleIntercept(IDicomTagParser2* parser) {
    readDecimal(parser, 0, processOf(parser).m_rescaleIntercept);
}

void CImageProcess::fTag2DCM_RescaleSlope(IDicomTagParser2* parser) {
    readDecimal(parser, 0, processOf(parser).m_rescaleSlope);
}

void CImageProcess::fTag2DCM_NumberOfSlices(IDicomTagParser2* parser) {
    processOf(parser).currentElement()->getUint16(processOf(parser).m_numberOfFrames);
}

void CImageProcess::fTag2DCM_IconImageSequence(IDicomTagParser2* parser) {
    parser->removeElement();
}

void CImageProcess::fTag2DCM_PixelData(IDicomTagParser2* parser) {
    CImageProcess& process = processOf(parser);
    DcmElement* element = process.currentElement();
    process.m_itemResult += process.processImageElem(element, element->getVR());
    parser->removeElement();
}

void CImageProcess::fTagPIXEL_DATA_REFERENCE(IDicomTagParser2* parser) {
    if (!processOf(parser).m_pixelDataSeen) processOf(parser).m_pixelKind = PixelKind::Reference;
}
