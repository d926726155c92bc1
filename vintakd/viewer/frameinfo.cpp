#include "vintakd/viewer/frameinfo.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcitem.h>
#include <dcmtk/dcmdata/dcsequen.h>

#include <cstdlib>
#include <utility>

#include "imgproc/elementvalues.h"

namespace {

using MemberReader = void (*)(DcmElement& member, CFrameInfo& info);

void readPixelMeasures(DcmElement& member, CFrameInfo& info) {
    if (member.getTag() == DCM_PixelSpacing) {
        // Half a spacing is none; an empty value beside the other is no value.
        const auto rows = textOf(member, 0), columns = textOf(member, 1);
        if (!rows || !columns || rows->empty() || columns->empty()) return;
        info.pixelSpacing = {std::strtod(rows->c_str(), nullptr), std::strtod(columns->c_str(), nullptr)};
        info.flags |= CFrameInfo::FlagPixelSpacing;
    } else if (member.getTag() == DCM_SliceThickness) {
        info.readNumber(member, &CFrameInfo::sliceThickness, CFrameInfo::FlagSliceThickness);
    } else if (member.getTag() == DCM_SpacingBetweenSlices) {
        info.readNumber(member, &CFrameInfo::spacingBetweenSlices, CFrameInfo::FlagSliceSpacing);
    }
}

void readPixelValueTransformation(DcmElement& member, CFrameInfo& info) {
    if (member.getTag() == DCM_RescaleIntercept)
        info.readNumber(member, &CFrameInfo::rescaleIntercept, CFrameInfo::FlagRescaleIntercept);
    else if (member.getTag() == DCM_RescaleSlope)
        info.readNumber(member, &CFrameInfo::rescaleSlope, CFrameInfo::FlagRescaleSlope);
}

void readFrameVoiLut(DcmElement& member, CFrameInfo& info) {
    if (member.getTag() == DCM_WindowCenter)
        info.readNumber(member, &CFrameInfo::windowCenter, CFrameInfo::FlagWindowCenter);
    else if (member.getTag() == DCM_WindowWidth)
        info.readNumber(member, &CFrameInfo::windowWidth, CFrameInfo::FlagWindowWidth);
}

void readPlanePosition(DcmElement& member, CFrameInfo& info) {
    if (member.getTag() == DCM_ImagePositionPatient)
        info.readText(member, &CFrameInfo::imagePositionPatient, CFrameInfo::FlagImagePosPatient);
}

void readPlaneOrientation(DcmElement& member, CFrameInfo& info) {
    if (member.getTag() == DCM_ImageOrientationPatient)
        info.readText(member, &CFrameInfo::imageOrientationPatient, CFrameInfo::FlagImageOrientPatient);
}

void readDetectorInformation(DcmElement& member, CFrameInfo& info) {
    readPlanePosition(member, info);
    readPlaneOrientation(member, info);
}

MemberReader readerFor(const DcmTagKey& macro) {
    if (macro == DCM_PixelMeasuresSequence) return readPixelMeasures;
    if (macro == DCM_PixelValueTransformationSequence) return readPixelValueTransformation;
    if (macro == DCM_FrameVOILUTSequence) return readFrameVoiLut;
    if (macro == DCM_PlanePositionSequence) return readPlanePosition;
    if (macro == DCM_PlaneOrientationSequence) return readPlaneOrientation;
    if (macro == DCM_DetectorInformationSequence) return readDetectorInformation;
    return nullptr;
}

}  // namespace

void CFrameInfo::readNumber(DcmElement& element, double CFrameInfo::*field, uint64_t flag) {
    const auto number = decimalOf(element);
    if (!number) return;
    this->*field = *number;
    flags |= flag;
}

void CFrameInfo::readText(DcmElement& element, std::string CFrameInfo::*field, uint64_t flag) {
    auto text = textsOf(element);
    if (!text) return;
    this->*field = std::move(*text);
    flags |= flag;
}

void readFrameData(DcmElement& element, CFrameInfo& info) {
    const MemberReader reader = readerFor(element.getTag());
    auto* sequence = reader ? dynamic_cast<DcmSequenceOfItems*>(&element) : nullptr;
    if (!sequence) return;
    for (DcmObject* item = sequence->nextInContainer(nullptr); item; item = sequence->nextInContainer(item))
        for (DcmObject* member = item->nextInContainer(nullptr); member;
             member = item->nextInContainer(member))
            reader(static_cast<DcmElement&>(*member), info);
}
