#include "vintakd/viewer/frameinfolist.h"

#include <cstring>
#include <type_traits>

// An entry: the flags, then what they say is there, a text with its length before it.
namespace {

struct NumberField {
    uint64_t flag;
    double CFrameInfo::*field;
};
constexpr NumberField kNumbers[] = {{CFrameInfo::FlagWindowCenter, &CFrameInfo::windowCenter},
                                    {CFrameInfo::FlagWindowWidth, &CFrameInfo::windowWidth},
                                    {CFrameInfo::FlagRescaleSlope, &CFrameInfo::rescaleSlope},
                                    {CFrameInfo::FlagRescaleIntercept, &CFrameInfo::rescaleIntercept},
                                    {CFrameInfo::FlagSliceThickness, &CFrameInfo::sliceThickness},
                                    {CFrameInfo::FlagSliceSpacing, &CFrameInfo::spacingBetweenSlices}};

struct TextField {
    uint64_t flag;
    std::string CFrameInfo::*field;
};
constexpr TextField kTexts[] = {{CFrameInfo::FlagPatientOrient, &CFrameInfo::patientOrientation},
                                {CFrameInfo::FlagImageOrientPatient, &CFrameInfo::imageOrientationPatient},
                                {CFrameInfo::FlagImagePosPatient, &CFrameInfo::imagePositionPatient}};

template <class Value>
void put(std::string& bytes, const Value& value) {
    static_assert(std::is_trivially_copyable_v<Value>);
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

template <class Value>
void take(const char*& bytes, Value& value) {
    std::memcpy(&value, bytes, sizeof value);
    bytes += sizeof value;
}

}  // namespace

void FrameInfoList::reset(size_t frames) {
    m_size = frames;
    m_ends.clear();
    m_bytes.clear();
}

void FrameInfoList::append(const CFrameInfo& info) {
    if (m_ends.size() == m_size) return;
    put(m_bytes, info.flags);
    for (const auto& [flag, field] : kNumbers)
        if (info.has(flag)) put(m_bytes, info.*field);
    if (info.has(CFrameInfo::FlagPixelSpacing)) put(m_bytes, info.pixelSpacing);
    for (const auto& [flag, field] : kTexts) {
        if (!info.has(flag)) continue;
        put(m_bytes, static_cast<uint32_t>((info.*field).size()));
        m_bytes += info.*field;
    }
    m_ends.push_back(m_bytes.size());
}

CFrameInfo FrameInfoList::at(size_t index) const {
    CFrameInfo info;
    if (index >= m_ends.size()) return info;
    const char* bytes = m_bytes.data() + (index == 0 ? 0 : m_ends[index - 1]);
    take(bytes, info.flags);
    for (const auto& [flag, field] : kNumbers)
        if (info.has(flag)) take(bytes, info.*field);
    if (info.has(CFrameInfo::FlagPixelSpacing)) take(bytes, info.pixelSpacing);
    for (const auto& [flag, field] : kTexts) {
        if (!info.has(flag)) continue;
        uint32_t length = 0;
        take(bytes, length);
        (info.*field).assign(bytes, length);
        bytes += length;
    }
    return info;
}
