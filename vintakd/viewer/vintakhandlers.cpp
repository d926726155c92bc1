// The viewer's tag handlers: geometry and values of the frames.
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcsequen.h>

#include <algorithm>
#include <utility>

#include "imgproc/elementvalues.h"
#include "imgproc/fileitems.h"
#include "vintakd/viewer/ultrasoundregions.h"
#include "vintakd/viewer/vintakprocess.h"

namespace {

CVintakProcess& viewer(IDicomTagParser2* parser) {
    return *static_cast<CVintakProcess*>(parser);
}

/// Two numbers, 0 for one that cannot be read.
std::array<double, 2> readPair(DcmElement& element) {
    return {decimalOf(element, 0).value_or(0), decimalOf(element, 1).value_or(0)};
}

DcmSequenceOfItems* sequenceOf(IDicomTagParser2* parser) {
    return dynamic_cast<DcmSequenceOfItems*>(viewer(parser).currentElement());
}

void readAllFrameData(DcmObject& item, CFrameInfo& info) {
    for (DcmObject* member = item.nextInContainer(nullptr); member; member = item.nextInContainer(member))
        readFrameData(static_cast<DcmElement&>(*member), info);
}

}  // namespace

// NOLINTNEXTLINE(bugprone-virtual-near-miss): its name; it does not override
void CVintakProcess::initFunction2() {
    const auto add = [this](const DcmTagKey& key, TagHandler handler) { addTag(key, handler, nullptr); };
    add(DCM_SliceThickness, fVintakTag2DCM_SliceThickness);
    add(DCM_SpacingBetweenSlices, fVintakTag2DCM_SpacingBetweenSlices);
    add(DCM_PatientOrientation, fVintakTag2DCM_PatientOrientation);
    add(DCM_ImagePositionPatient, fVintakTag2DCM_ImagePositionPatient);
    add(DCM_ImageOrientationPatient, fVintakTag2DCM_ImageOrientationPatient);
    add(DCM_FrameOfReferenceUID, fVintakTag2DCM_FrameOfReferenceUID);
    add(DCM_NumberOfFrames, fVintakTag2DCM_NumberOfFrames);
    add(DCM_SequenceOfUltrasoundRegions, fVintakTag2DCM_SequenceOfUltrasoundRegions);
    add(DCM_PixelSpacing, fVintakTag2DCM_PixelSpacing);
    add(DCM_ImagerPixelSpacing, fVintakTag2DCM_ImagerPixelSpacing);
    add(DCM_NominalScannedPixelSpacing, fVintakTag2DCM_NominalScannedPixelSpacing);
    add(DCM_WindowCenter, fVintakTag2DCM_WindowCenter);
    add(DCM_WindowWidth, fVintakTag2DCM_WindowWidth);
    add(DCM_RescaleIntercept, fVintakTag2DCM_RescaleIntercept);
    add(DCM_RescaleSlope, fVintakTag2DCM_RescaleSlope);
    add(DCM_DetectorInformationSequence, fVintakTag2DCM_DetectorInformationSequence);
    add(DCM_SharedFunctionalGroupsSequence, fVintakTag2DCM_SharedFunctionalGroupsSequence);
    add(DCM_PerFrameFunctionalGroupsSequence, fVintakTag2DCM_PerFrameFunctionalGroupsSequence);
}

void CVintakProcess::fVintakTag2DCM_SliceThickness(IDicomTagParser2* parser) {
    CVintakProcess& process = viewer(parser);
    process.m_sharedFrame.readNumber(*process.currentElement(), &CFrameInfo::sliceThickness,
                                     CFrameInfo::FlagSliceThickness);
}

void CVintakProcess::fVintakTag2DCM_SpacingBetweenSlices(IDicomTagParser2* parser) {
    CVintakProcess& process = viewer(parser);
    process.m_sharedFrame.readNumber(*process.currentElement(), &CFrameInfo::spacingBetweenSlices,
                                     CFrameInfo::FlagSliceSpacing);
}

void CVintakProcess::fVintakTag2DCM_PatientOrientation(IDicomTagParser2* parser) {
    CVintakProcess& process = viewer(parser);
    process.m_sharedFrame.readText(*process.currentElement(), &CFrameInfo::patientOrientation,
                                   CFrameInfo::FlagPatientOrient);
}

void CVintakProcess::fVintakTag2DCM_ImagePositionPatient(IDicomTagParser2* parser) {
    CVintakProcess& process = viewer(parser);
    process.m_sharedFrame.readText(*process.currentElement(), &CFrameInfo::imagePositionPatient,
                                   CFrameInfo::FlagImagePosPatient);
}

void CVintakProcess::fVintakTag2DCM_ImageOrientationPatient(IDicomTagParser2* parser) {
    CVintakProcess& process = viewer(parser);
    process.m_sharedFrame.readText(*process.currentElement(), &CFrameInfo::imageOrientationPatient,
                                   CFrameInfo::FlagImageOrientPatient);
}

void CVintakProcess::fVintakTag2DCM_FrameOfReferenceUID(IDicomTagParser2* parser) {
    CVintakProcess& process = viewer(parser);
    if (auto uid = textOf(*process.currentElement())) process.m_frameOfReferenceUID = std::move(*uid);
}

void CVintakProcess::fVintakTag2DCM_NumberOfFrames(IDicomTagParser2* parser) {
    fTag2DCM_NumberOfFrames(parser);
    CVintakProcess& process = viewer(parser);
    process.m_frames.reset(process.attributes().numberOfFrames);
}

void CVintakProcess::fVintakTag2DCM_SequenceOfUltrasoundRegions(IDicomTagParser2* parser) {
    DcmSequenceOfItems* regions = sequenceOf(parser);
    const auto spacing = regions ? spacingOfUltrasoundRegions(*regions) : std::nullopt;
    if (!spacing) return;
    CFrameInfo& shared = viewer(parser).m_sharedFrame;
    shared.pixelSpacing = *spacing;
    shared.flags |= CFrameInfo::FlagPixelSpacing;
}

void CVintakProcess::fVintakTag2DCM_PixelSpacing(IDicomTagParser2* parser) {
    fTag2DCM_PixelSpacing(parser);
    CVintakProcess& process = viewer(parser);
    process.m_sharedFrame.pixelSpacing = process.attributes().pixelSpacing;
    process.m_sharedFrame.flags |= CFrameInfo::FlagPixelSpacing;
}

void CVintakProcess::fVintakTag2DCM_ImagerPixelSpacing(IDicomTagParser2* parser) {
    CVintakProcess& process = viewer(parser);
    process.m_sharedFrame.imagerPixelSpacing = readPair(*process.currentElement());
}

void CVintakProcess::fVintakTag2DCM_NominalScannedPixelSpacing(IDicomTagParser2* parser) {
    CVintakProcess& process = viewer(parser);
    process.m_sharedFrame.nominalScannedPixelSpacing = readPair(*process.currentElement());
}

void CVintakProcess::fVintakTag2DCM_WindowCenter(IDicomTagParser2* parser) {
    fTag2DCM_WindowCenter(parser);
    CVintakProcess& process = viewer(parser);
    process.m_sharedFrame.windowCenter = process.attributes().windowCenter;
    process.m_sharedFrame.flags |= CFrameInfo::FlagWindowCenter;
}

void CVintakProcess::fVintakTag2DCM_WindowWidth(IDicomTagParser2* parser) {
    fTag2DCM_WindowWidth(parser);
    CVintakProcess& process = viewer(parser);
    process.m_sharedFrame.windowWidth = process.attributes().windowWidth;
    process.m_sharedFrame.flags |= CFrameInfo::FlagWindowWidth;
}

void CVintakProcess::fVintakTag2DCM_RescaleIntercept(IDicomTagParser2* parser) {
    fTag2DCM_RescaleIntercept(parser);
    CVintakProcess& process = viewer(parser);
    process.m_sharedFrame.rescaleIntercept = process.attributes().rescaleIntercept;
    process.m_sharedFrame.flags |= CFrameInfo::FlagRescaleIntercept;
}

void CVintakProcess::fVintakTag2DCM_RescaleSlope(IDicomTagParser2* parser) {
    fTag2DCM_RescaleSlope(parser);
    CVintakProcess& process = viewer(parser);
    process.m_sharedFrame.rescaleSlope = process.attributes().rescaleSlope;
    process.m_sharedFrame.flags |= CFrameInfo::FlagRescaleSlope;
}

void CVintakProcess::fVintakTag2DCM_DetectorInformationSequence(IDicomTagParser2* parser) {
    CVintakProcess& process = viewer(parser);
    DcmSequenceOfItems* sequence = sequenceOf(parser);
    DcmObject* item = sequence ? sequence->nextInContainer(nullptr) : nullptr;
    if (!item) return;
    DcmElement* outer = process.currentElement();
    for (DcmObject* member = item->nextInContainer(nullptr); member; member = item->nextInContainer(member)) {
        process.setCurrentElement(static_cast<DcmElement*>(member));
        if (member->getTag() == DCM_ImagePositionPatient) fVintakTag2DCM_ImagePositionPatient(parser);
        if (member->getTag() == DCM_ImageOrientationPatient) fVintakTag2DCM_ImageOrientationPatient(parser);
    }
    process.setCurrentElement(outer);
}

void CVintakProcess::fVintakTag2DCM_SharedFunctionalGroupsSequence(IDicomTagParser2* parser) {
    DcmSequenceOfItems* sequence = sequenceOf(parser);
    if (DcmObject* item = sequence ? sequence->nextInContainer(nullptr) : nullptr)
        readAllFrameData(*item, viewer(parser).m_sharedFrame);
}

void CVintakProcess::fVintakTag2DCM_PerFrameFunctionalGroupsSequence(IDicomTagParser2* parser) {
    DcmSequenceOfItems* sequence = sequenceOf(parser);
    if (!sequence) return;
    CVintakProcess& process = viewer(parser);
    FrameInfoList& frames = process.m_frames;
    // The object may name more frames later than it did when the entries were made.
    const size_t declared = process.attributes().numberOfFrames;
    const size_t last = frames.size() == 0 ? declared : std::min(frames.size(), declared);
    size_t index = 0;
    const auto take = [&](DcmObject& item) {
        if (index++ >= last) return;
        if (frames.size() == 0) return readAllFrameData(item, process.m_sharedFrame);
        CFrameInfo info;
        readAllFrameData(item, info);
        frames.append(info);
    };
    const auto* items = dynamic_cast<const FileItems*>(sequence);
    if (!items) {
        for (DcmObject* item = nullptr; index < last && (item = sequence->nextInContainer(item)) != nullptr;)
            take(*item);
        return;
    }
    const OFCondition read = items->eachItem([&take](DcmItem& item) {
        take(item);
        return EC_Normal;
    });
    if (read.good()) return;
    process.reportFailure(std::string("the functional groups of its frames: ") + read.text());
    ++process.m_itemResult;
}
