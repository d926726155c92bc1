#include "tools/phantom/phantomobject.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctk.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <vector>

#include "tools/phantom/Chest.h"

namespace {

constexpr double kFieldOfView = 400;  // mm
constexpr double kSliceDistance = 5;  // mm

void check(const OFCondition& condition, const char* what) {
    if (condition.bad()) throw std::runtime_error(std::string(what) + ": " + condition.text());
}

void put(DcmItem& item, const DcmTagKey& key, const std::string& value) {
    check(item.putAndInsertString(DcmTag(key), value.c_str()), "the phantom's attributes");
}

void putNumber(DcmItem& item, const DcmTagKey& key, Uint16 value) {
    check(item.putAndInsertUint16(DcmTag(key), value), "the phantom's attributes");
}

DcmItem& itemOf(DcmItem& parent, const DcmTagKey& sequence, long index) {
    DcmItem* item = nullptr;
    check(parent.findOrCreateSequenceItem(DcmTag(sequence), item, index), "the phantom's sequences");
    return *item;
}

std::string number(double value) {
    char text[32];
    snprintf(text, sizeof text, "%.6g", value);
    return text;
}

std::string uid() {
    char text[100];
    return dcmGenerateUniqueIdentifier(text);
}

void describe(DcmDataset& dataset) {
    put(dataset, DCM_SpecificCharacterSet, "ISO_IR 100");
    put(dataset, DCM_ImageType, "DERIVED\\PRIMARY\\VOLUME\\NONE");
    put(dataset, DCM_SOPClassUID, UID_EnhancedCTImageStorage);
    put(dataset, DCM_SOPInstanceUID, uid());
    put(dataset, DCM_StudyDate, "20260101");
    put(dataset, DCM_StudyTime, "120000");
    put(dataset, DCM_Modality, "CT");
    put(dataset, DCM_Manufacturer, "vintakd");
    put(dataset, DCM_StudyDescription, "Chest phantom");
    put(dataset, DCM_PatientName, "Phantom^Chest");
    put(dataset, DCM_PatientID, "PHANTOM");
    put(dataset, DCM_StudyInstanceUID, uid());
    put(dataset, DCM_SeriesInstanceUID, uid());
    put(dataset, DCM_InstanceNumber, "1");
    put(dataset, DCM_FrameOfReferenceUID, uid());
}

void describePixels(DcmDataset& dataset, const PhantomOptions& options) {
    putNumber(dataset, DCM_SamplesPerPixel, 1);
    put(dataset, DCM_PhotometricInterpretation, "MONOCHROME2");
    put(dataset, DCM_NumberOfFrames, std::to_string(options.frames));
    putNumber(dataset, DCM_Rows, static_cast<Uint16>(options.size));
    putNumber(dataset, DCM_Columns, static_cast<Uint16>(options.size));
    putNumber(dataset, DCM_BitsAllocated, 16);
    putNumber(dataset, DCM_BitsStored, 12);
    putNumber(dataset, DCM_HighBit, 11);
    putNumber(dataset, DCM_PixelRepresentation, 0);
}

void describeFrames(DcmDataset& dataset, const PhantomOptions& options) {
    DcmItem& shared = itemOf(dataset, DCM_SharedFunctionalGroupsSequence, 0);
    DcmItem& measures = itemOf(shared, DCM_PixelMeasuresSequence, 0);
    const std::string spacing = number(kFieldOfView / options.size);
    put(measures, DCM_PixelSpacing, spacing + "\\" + spacing);
    put(measures, DCM_SliceThickness, number(kSliceDistance));
    put(measures, DCM_SpacingBetweenSlices, number(kSliceDistance));
    put(itemOf(shared, DCM_PlaneOrientationSequence, 0), DCM_ImageOrientationPatient, "1\\0\\0\\0\\1\\0");
    DcmItem& transformation = itemOf(shared, DCM_PixelValueTransformationSequence, 0);
    put(transformation, DCM_RescaleIntercept, "-1024");
    put(transformation, DCM_RescaleSlope, "1");
    put(transformation, DCM_RescaleType, "HU");
    DcmItem& window = itemOf(shared, DCM_FrameVOILUTSequence, 0);
    put(window, DCM_WindowCenter, "-100");
    put(window, DCM_WindowWidth, "1600");

    if (!options.framePositions) return;
    const std::string corner = number(-kFieldOfView / 2);
    for (unsigned frame = 0; frame < options.frames; ++frame) {
        DcmItem& group = itemOf(dataset, DCM_PerFrameFunctionalGroupsSequence, frame);
        put(itemOf(group, DCM_PlanePositionSequence, 0), DCM_ImagePositionPatient,
            corner + "\\" + corner + "\\" + number(frame * kSliceDistance));
    }
}

void putPixels(DcmDataset& dataset, const PhantomOptions& options) {
    const size_t frameSamples = static_cast<size_t>(options.size) * options.size;
    if (frameSamples * 2 * options.frames >= 0xFFFFFFFEu)
        throw std::runtime_error("the phantom would be too large");
    auto* element = new DcmPixelData(DCM_PixelData);
    check(dataset.insert(element), "the phantom's pixels");
    element->setVR(EVR_OW);
    Uint16* samples = nullptr;
    check(element->createUint16Array(static_cast<Uint32>(frameSamples * options.frames), samples),
          "the phantom's pixels");
    for (unsigned frame = 0; frame < options.frames; ++frame) {
        const double z = options.frames > 1 ? -0.9 + 1.8 * frame / (options.frames - 1) : 0;
        const std::vector<uint16_t> slice = Chest::slice(options.size, z);
        std::copy(slice.begin(), slice.end(), samples + frame * frameSamples);
    }
}

}  // namespace

void writePhantom(const std::string& path, const PhantomOptions& options) {
    DcmFileFormat file;
    DcmDataset& dataset = *file.getDataset();
    describe(dataset);
    describePixels(dataset, options);
    describeFrames(dataset, options);
    putPixels(dataset, options);
    check(file.saveFile(path.c_str(), EXS_LittleEndianExplicit), path.c_str());
}
