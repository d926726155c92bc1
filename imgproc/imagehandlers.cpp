#include <dcmtk/dcmdata/dcdeftag.h>

#include "imgproc/elementvalues.h"
#include "imgproc/imageprocess.h"
#include "imgproc/privatekeys.h"
#include "privateblock/privatedictionary.h"

// The handler table and the handlers that take one element each into the process. The toolkit's getters
// decide what a value that cannot be read leaves behind.

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
    const bool isEmpty = position == 0 && element->getLength() == 0;
    number = decimalOf(*element, position).value_or(isEmpty ? 0 : number);
}

struct TableEntry {
    DcmTagKey key;
    TagHandler handler;
    TagRange range = {};
};

uint16_t currentNumber(IDicomTagParser2* parser) {
    Uint16 value = 0;
    processOf(parser).currentElement()->getUint16(value);
    return value;
}

/// The overlay that the current element belongs to; null when there is no room for another.
COverlay* currentOverlay(IDicomTagParser2* parser, OverlayPlanes& overlays) {
    return overlays.ofGroup(processOf(parser).currentElement()->getGTag());
}

}  // namespace

void CImageProcess::initFunction() {
    if (m_dumpOnly) return;
    const TableEntry entries[] = {
        {DCM_Modality, fTag2DCM_Modality},
        {DCM_SecondaryCaptureDeviceManufacturerModelName,
         fTag2DCM_SecondaryCaptureDeviceManufacturerModelName},
        {DCM_SecondaryCaptureDeviceSoftwareVersions, fTag2DCM_SecondaryCaptureDeviceSoftwareVersions},
        {DCM_SamplesPerPixel, fTag2DCM_SamplesPerPixel},
        {DCM_PhotometricInterpretation, fTag2DCM_PhotometricInterpretation},
        {DCM_PlanarConfiguration, fTag2DCM_PlanarConfiguration},
        {DCM_NumberOfFrames, fTag2DCM_NumberOfFrames},
        {DCM_Rows, fTag2DCM_Rows},
        {DCM_Columns, fTag2DCM_Columns},
        {DCM_PixelSpacing, fTag2DCM_PixelSpacing},
        {DCM_BitsAllocated, fTag2DCM_BitsAllocated},
        {DCM_BitsStored, fTag2DCM_BitsStored},
        {DCM_HighBit, fTag2DCM_HighBit},
        {DCM_PixelRepresentation, fTag2DCM_PixelRepresentation},
        {DCM_WindowCenter, fTag2DCM_WindowCenter},
        {DCM_WindowWidth, fTag2DCM_WindowWidth},
        {DCM_RescaleIntercept, fTag2DCM_RescaleIntercept},
        {DCM_RescaleSlope, fTag2DCM_RescaleSlope},
        {DCM_RedPaletteColorLookupTableDescriptor, fTag2DCM_RedPaletteColorLookupTableDescriptor},
        {DCM_GreenPaletteColorLookupTableDescriptor, fTag2DCM_GreenPaletteColorLookupTableDescriptor},
        {DCM_BluePaletteColorLookupTableDescriptor, fTag2DCM_BluePaletteColorLookupTableDescriptor},
        {DCM_RedPaletteColorLookupTableData, fTag2DCM_RedPaletteColorLookupTableData},
        {DCM_GreenPaletteColorLookupTableData, fTag2DCM_GreenPaletteColorLookupTableData},
        {DCM_BluePaletteColorLookupTableData, fTag2DCM_BluePaletteColorLookupTableData},
        {DCM_EncapsulatedDocument, fTag2DCM_EncapsulatedDocument},
        {DCM_NumberOfSlices, fTag2DCM_NumberOfSlices},
        {DCM_IconImageSequence, fTag2DCM_IconImageSequence},
        {DcmTagKey(0x6000, 0x0010), fTag2DCM_OverlayRows, kOverlayGroups},
        {DcmTagKey(0x6000, 0x0011), fTag2DCM_OverlayColumns, kOverlayGroups},
        {DcmTagKey(0x6000, 0x0040), fTag2DCM_OverlayType, kOverlayGroups},
        {DcmTagKey(0x6000, 0x0050), fTag2DCM_OverlayOrigin, kOverlayGroups},
        {DcmTagKey(0x6000, 0x0100), fTag2DCM_OverlayBitsAllocated, kOverlayGroups},
        {DcmTagKey(0x6000, 0x0102), fTag2DCM_OverlayBitPosition, kOverlayGroups},
        {DcmTagKey(0x6000, 0x3000), fTag2DCM_OverlayData, kOverlayGroups},
        {DCM_PixelData, fTag2DCM_PixelData},
    };
    for (const TableEntry& entry : entries)
        addTag(entry.key, entry.handler, nullptr, entry.range);
    addTag(DcmTagKey(kPrivateGroup, privatekeys::kFrameNumbers), fTagPIXEL_DATA_REFERENCE, kPrivateCreator);
}

void CImageProcess::fTag2DCM_Modality(IDicomTagParser2* parser) {
    processOf(parser).m_attributes.modality = firstValue(parser);
}

void CImageProcess::fTag2DCM_SecondaryCaptureDeviceManufacturerModelName(IDicomTagParser2* parser) {
    processOf(parser).m_attributes.scDeviceModelName = firstValue(parser);
}

void CImageProcess::fTag2DCM_SecondaryCaptureDeviceSoftwareVersions(IDicomTagParser2* parser) {
    processOf(parser).m_attributes.scDeviceSoftwareVersions = firstValue(parser);
}

void CImageProcess::fTag2DCM_SamplesPerPixel(IDicomTagParser2* parser) {
    CImageProcess& process = processOf(parser);
    uint16_t value = process.m_attributes.samplesPerPixel;
    process.currentElement()->getUint16(value);
    process.setSamplesPerPixel(value, process.currentElement());
}

void CImageProcess::fTag2DCM_PhotometricInterpretation(IDicomTagParser2* parser) {
    std::string value = firstValue(parser);
    processOf(parser).setPhotometricInterpretation(value, processOf(parser).currentElement());
}

void CImageProcess::fTag2DCM_PlanarConfiguration(IDicomTagParser2* parser) {
    CImageProcess& process = processOf(parser);
    process.currentElement()->getUint16(process.m_attributes.planarConfiguration);
    process.m_attributes.planarConfigurationPresent = true;
}

void CImageProcess::fTag2DCM_NumberOfFrames(IDicomTagParser2* parser) {
    Sint32 value = 0;
    if (processOf(parser).currentElement()->getSint32(value).bad()) value = 0;
    processOf(parser).m_attributes.numberOfFrames = static_cast<uint16_t>(value);
}

void CImageProcess::fTag2DCM_Rows(IDicomTagParser2* parser) {
    processOf(parser).currentElement()->getUint16(processOf(parser).m_attributes.rows);
}

void CImageProcess::fTag2DCM_Columns(IDicomTagParser2* parser) {
    processOf(parser).currentElement()->getUint16(processOf(parser).m_attributes.columns);
}

void CImageProcess::fTag2DCM_PixelSpacing(IDicomTagParser2* parser) {
    readDecimal(parser, 0, processOf(parser).m_attributes.pixelSpacing[0]);
    readDecimal(parser, 1, processOf(parser).m_attributes.pixelSpacing[1]);
}

void CImageProcess::fTag2DCM_BitsAllocated(IDicomTagParser2* parser) {
    processOf(parser).currentElement()->getUint16(processOf(parser).m_attributes.bitsAllocated);
}

void CImageProcess::fTag2DCM_BitsStored(IDicomTagParser2* parser) {
    processOf(parser).currentElement()->getUint16(processOf(parser).m_attributes.bitsStored);
}

void CImageProcess::fTag2DCM_HighBit(IDicomTagParser2* parser) {
    processOf(parser).currentElement()->getUint16(processOf(parser).m_attributes.highBit);
}

void CImageProcess::fTag2DCM_PixelRepresentation(IDicomTagParser2* parser) {
    processOf(parser).currentElement()->getUint16(processOf(parser).m_attributes.pixelRepresentation);
}

void CImageProcess::fTag2DCM_WindowCenter(IDicomTagParser2* parser) {
    readDecimal(parser, 0, processOf(parser).m_attributes.windowCenter);
}

void CImageProcess::fTag2DCM_WindowWidth(IDicomTagParser2* parser) {
    readDecimal(parser, 0, processOf(parser).m_attributes.windowWidth);
}

void CImageProcess::fTag2DCM_RescaleIntercept(IDicomTagParser2* parser) {
    readDecimal(parser, 0, processOf(parser).m_attributes.rescaleIntercept);
}

void CImageProcess::fTag2DCM_RescaleSlope(IDicomTagParser2* parser) {
    readDecimal(parser, 0, processOf(parser).m_attributes.rescaleSlope);
}

void CImageProcess::fTag2DCM_NumberOfSlices(IDicomTagParser2* parser) {
    processOf(parser).currentElement()->getUint16(processOf(parser).m_attributes.numberOfFrames);
}

void CImageProcess::fTag2DCM_IconImageSequence(IDicomTagParser2* parser) {
    parser->removeElement();
}

void CImageProcess::fTag2DCM_RedPaletteColorLookupTableDescriptor(IDicomTagParser2* parser) {
    processOf(parser).m_palette.readDescriptor(*processOf(parser).currentElement(), 0);
}

void CImageProcess::fTag2DCM_GreenPaletteColorLookupTableDescriptor(IDicomTagParser2* parser) {
    processOf(parser).m_palette.readDescriptor(*processOf(parser).currentElement(), 1);
}

void CImageProcess::fTag2DCM_BluePaletteColorLookupTableDescriptor(IDicomTagParser2* parser) {
    processOf(parser).m_palette.readDescriptor(*processOf(parser).currentElement(), 2);
}

void CImageProcess::fTag2DCM_RedPaletteColorLookupTableData(IDicomTagParser2* parser) {
    processOf(parser).m_palette.readData(*processOf(parser).currentElement(), 0);
}

void CImageProcess::fTag2DCM_GreenPaletteColorLookupTableData(IDicomTagParser2* parser) {
    processOf(parser).m_palette.readData(*processOf(parser).currentElement(), 1);
}

void CImageProcess::fTag2DCM_BluePaletteColorLookupTableData(IDicomTagParser2* parser) {
    processOf(parser).m_palette.readData(*processOf(parser).currentElement(), 2);
}

void CImageProcess::fTag2DCM_OverlayRows(IDicomTagParser2* parser) {
    if (COverlay* overlay = currentOverlay(parser, processOf(parser).m_overlays))
        overlay->setRows(currentNumber(parser));
}

void CImageProcess::fTag2DCM_OverlayColumns(IDicomTagParser2* parser) {
    if (COverlay* overlay = currentOverlay(parser, processOf(parser).m_overlays))
        overlay->setColumns(currentNumber(parser));
}

void CImageProcess::fTag2DCM_OverlayType(IDicomTagParser2* parser) {
    if (COverlay* overlay = currentOverlay(parser, processOf(parser).m_overlays))
        overlay->setRegion(textOf(*processOf(parser).currentElement()) == "R");
}

void CImageProcess::fTag2DCM_OverlayOrigin(IDicomTagParser2* parser) {
    COverlay* overlay = currentOverlay(parser, processOf(parser).m_overlays);
    if (overlay == nullptr) return;
    Sint16 row = 0;
    Sint16 column = 0;
    processOf(parser).currentElement()->getSint16(row, 0);
    processOf(parser).currentElement()->getSint16(column, 1);
    overlay->setOrigin(row, column);
}

void CImageProcess::fTag2DCM_OverlayBitsAllocated(IDicomTagParser2* parser) {
    if (COverlay* overlay = currentOverlay(parser, processOf(parser).m_overlays))
        overlay->setBitsAllocated(currentNumber(parser));
}

void CImageProcess::fTag2DCM_OverlayBitPosition(IDicomTagParser2* parser) {
    if (COverlay* overlay = currentOverlay(parser, processOf(parser).m_overlays))
        overlay->setBitPosition(currentNumber(parser));
}

void CImageProcess::fTag2DCM_OverlayData(IDicomTagParser2* parser) {
    processOf(parser).m_overlays.readData(*processOf(parser).currentElement());
    parser->removeElement();
}

void CImageProcess::fTag2DCM_EncapsulatedDocument(IDicomTagParser2* parser) {
    CImageProcess& process = processOf(parser);
    process.m_itemResult += process.processEncapsulatedDocument(process.currentElement());
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
