#include "vintakd/viewer/ultrasoundregions.h"

#include <dcmtk/dcmdata/dcdeftag.h>

namespace {

constexpr uint16_t kCentimetres = 3;

OFCondition get(DcmElement& element, uint32_t& value) {
    return element.getUint32(value);
}
OFCondition get(DcmElement& element, int32_t& value) {
    return element.getSint32(value);
}
OFCondition get(DcmElement& element, uint16_t& value) {
    return element.getUint16(value);
}
OFCondition get(DcmElement& element, double& value) {
    return element.getFloat64(value);
}

template <class Member>
void read(DcmElement& element, Member& member, uint32_t bit, UltrasoundRegionInfo& info) {
    Member value = 0;
    if (get(element, value).bad()) return;
    member = value;
    info.presence |= bit;
}

UltrasoundRegionInfo readRegion(DcmObject& item) {
    UltrasoundRegionInfo info{};
    for (DcmObject* member = item.nextInContainer(nullptr); member; member = item.nextInContainer(member))
        readUltrasoundRegionData(static_cast<DcmElement*>(member), &info);
    return info;
}

}  // namespace

bool readUltrasoundRegionData(DcmElement* element, UltrasoundRegionInfo* info) {
    if (element->getGTag() != 0x0018) return true;
    switch (element->getETag()) {
        case 0x6018:
            read(*element, info->regionLocationMinX0, 0x001, *info);
            break;
        case 0x601A:
            read(*element, info->regionLocationMinY0, 0x002, *info);
            break;
        case 0x601C:
            read(*element, info->regionLocationMaxX1, 0x004, *info);
            break;
        case 0x601E:
            read(*element, info->regionLocationMaxY1, 0x008, *info);
            break;
        case 0x6020:
            read(*element, info->referencePixelX0, 0x010, *info);
            break;
        case 0x6022:
            read(*element, info->referencePixelY0, 0x020, *info);
            break;
        case 0x6024:
            read(*element, info->physicalUnitsXDirection, 0x040, *info);
            break;
        case 0x6026:
            read(*element, info->physicalUnitsYDirection, 0x080, *info);
            break;
        case 0x6028:
            read(*element, info->referencePixelPhysicalValueX, 0x100, *info);
            break;
        case 0x602A:
            read(*element, info->referencePixelPhysicalValueY, 0x200, *info);
            break;
        case 0x602C:
            read(*element, info->physicalDeltaX, 0x400, *info);
            break;
        case 0x602E:
            read(*element, info->physicalDeltaY, 0x800, *info);
            break;
        default:
            break;
    }
    return true;
}

std::optional<std::array<double, 2>> spacingOfUltrasoundRegions(DcmSequenceOfItems& regions) {
    double deltaX = 0, deltaY = 0;
    for (DcmObject* item = regions.nextInContainer(nullptr); item; item = regions.nextInContainer(item)) {
        const UltrasoundRegionInfo region = readRegion(*item);
        if (region.physicalUnitsXDirection != kCentimetres || region.physicalUnitsYDirection != kCentimetres)
            return {};
        if (deltaX == 0 && deltaY == 0) {
            deltaX = region.physicalDeltaX;
            deltaY = region.physicalDeltaY;
        } else if (region.physicalDeltaX != deltaX && region.physicalDeltaY != deltaY) {
            return {};
        }
    }
    if (deltaX == 0 && deltaY == 0) return {};
    return std::array{deltaX * 10, deltaY * 10};
}
