#include <dcmtk/dcmdata/dcdeftag.h>

#include "imgproc/imageprocess.h"

namespace {

struct TableEntry {
    DcmTagKey key;
    TagHandler handler;
    unsigned int flags = oneElementOfOneGroup;
};

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
        {DcmTagKey(0x6000, 0x0010), fTag2DCM_OverlayRows, oneElementOfOverlayGroups},
        {DcmTagKey(0x6000, 0x0011), fTag2DCM_OverlayColumns, oneElementOfOverlayGroups},
        {DcmTagKey(0x6000, 0x0040), fTag2DCM_OverlayType, oneElementOfOverlayGroups},
        {DcmTagKey(0x6000, 0x0050), fTag2DCM_OverlayOrigin, oneElementOfOverlayGroups},
        {DcmTagKey(0x6000, 0x0100), fTag2DCM_OverlayBitsAllocated, oneElementOfOverlayGroups},
        {DcmTagKey(0x6000, 0x0102), fTag2DCM_OverlayBitPosition, oneElementOfOverlayGroups},
        {DcmTagKey(0x6000, 0x3000), fTag2DCM_OverlayData, oneElementOfOverlayGroups},
        {DCM_PixelData, fTag2DCM_PixelData},
    };
    for (const TableEntry& entry : entries)
        addTag(entry.key, entry.handler, nullptr, entry.flags);
    addTag(DcmTagKey(0xF215, 0x001D), fTagPIXEL_DATA_REFERENCE, "PB group A", oneElementOfOneGroup);
}
