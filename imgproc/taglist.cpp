#include "imgproc/taglist.h"

#include <algorithm>
#include <cstring>

#include "imgproc/dicomparser.h"
#include "imgproc/elementvalues.h"

namespace {

constexpr uint32_t groupPart(uint32_t tag) {
    return tag & 0xFFFF0000u;
}
constexpr uint32_t elementPart(uint32_t tag) {
    return tag & 0xFFFFu;
}
constexpr bool isPrivate(uint32_t tag) {
    return (tag & 0x10000u) != 0;
}

/// The end of a group's range, exclusive. The range of a run up to the last group ends with the last tag.
uint32_t groupEnd(uint32_t group, uint32_t count) {
    const uint64_t end = (uint64_t{group} + count) << 16;
    return static_cast<uint32_t>(std::min<uint64_t>(end, 0xFFFFFFFFu));
}

bool sameCreator(const char* a, const char* b) {
    if (a == nullptr || b == nullptr) return a == b;
    return std::strcmp(a, b) == 0;
}

bool startsBefore(const std::unique_ptr<SDicomTagParserGroupData>& node, uint32_t start) {
    return node->start() < start;
}

}  // namespace

bool NoPreprocessFunction(IDicomTagParser2*) {
    return true;
}

bool SDicomTagParserData2::CheckTag(unsigned int element, IDicomTagParser2* parser, void*) {
    if (start() > element) return true;
    if (end() <= element) return false;
    m_handler(parser);
    return end() != element + 1;
}

SDicomTagParserGroupData::SDicomTagParserGroupData(uint32_t group, uint32_t groupCount)
    : IDicomTagParserData(group << 16, groupEnd(group, groupCount), DcmTagKey(0xFFFF, 0xFFFF)) {}

void SDicomTagParserGroupData::addTag(unsigned int tag, const DcmTagKey& key, TagHandler handler, const char*,
                                      unsigned int elementCount) {
    const auto place =
        std::upper_bound(m_elements.begin(), m_elements.end(), tag,
                         [](uint32_t start, const auto& node) { return start < node->start(); });
    m_elements.insert(place, std::make_unique<SDicomTagParserData2>(tag, elementCount, key, handler));
}

void SDicomTagParserGroupData::removeAllTags() {
    m_elements.clear();
}

void* SDicomTagParserGroupData::InitTag() {
    return new SDicomTagParserGroupDataDynData;
}

void SDicomTagParserGroupData::ReleaseTagData(void* dynData) {
    delete static_cast<SDicomTagParserGroupDataDynData*>(dynData);
}

bool SDicomTagParserGroupData::FilteredTag(unsigned int tag) const {
    return isPrivate(tag);
}

bool SDicomTagParserGroupData::moreGroupsFollow(uint32_t tag) const {
    return groupPart(tag) < end() - 0x10000u;
}

void SDicomTagParserGroupData::startGroup(SDicomTagParserGroupDataDynData& state, uint32_t tag) {
    state.cursor = 0;
    state.activeElement = nullptr;
    state.currentGroup = groupPart(tag);
    state.creatorFound = SDicomTagParserGroupDataDynData::kNoCreator;
}

bool SDicomTagParserGroupData::CheckTag(unsigned int tag, IDicomTagParser2* parser, void* dynData) {
    auto& state = *static_cast<SDicomTagParserGroupDataDynData*>(dynData);
    if (state.currentGroup != groupPart(tag)) {
        if (tag >= end()) return false;
        startGroup(state, tag);
    }
    if (FilteredTag(tag)) return true;

    const uint32_t element = elementPart(tag);
    if (state.activeElement != nullptr && !state.activeElement->CheckTag(element, parser, nullptr))
        state.activeElement = nullptr;
    while (state.cursor < m_elements.size() && m_elements[state.cursor]->start() <= element) {
        SDicomTagParserData2* node = m_elements[state.cursor++].get();
        if (node->contains(element)) {
            state.activeElement = node;
            if (!node->CheckTag(element, parser, nullptr)) state.activeElement = nullptr;
        }
    }
    if (state.activeElement != nullptr || state.cursor < m_elements.size()) return true;
    return moreGroupsFollow(tag);
}

bool SDicomTagParserPrivateGroupData::FilteredTag(unsigned int tag) const {
    return !isPrivate(tag);
}

bool SDicomTagParserPrivateGroupData::CheckTag(unsigned int tag, IDicomTagParser2* parser, void* dynData) {
    if (m_creator == nullptr) return SDicomTagParserGroupData::CheckTag(tag, parser, dynData);
    auto& state = *static_cast<SDicomTagParserGroupDataDynData*>(dynData);
    if (state.currentGroup != groupPart(tag)) {
        if (tag >= end()) return false;
        startGroup(state, tag);
    }
    if ((tag & 0xFF00u) != 0) {
        if (state.creatorFound == SDicomTagParserGroupDataDynData::kNoCreator) return tag < end();
        return SDicomTagParserGroupData::CheckTag(tag & ~0xFF00u, parser, dynData);
    }
    DcmElement* element = static_cast<CDicomTagParser2*>(parser)->currentElement();
    if (const auto value = element != nullptr ? textOf(*element) : std::nullopt;
        value && !value->empty() && *value == m_creator)
        state.creatorFound = tag & 0xFFu;
    return true;
}

void SDicomTagGroupList::addTag(const DcmTagKey& key, TagHandler handler, const char* privateCreator,
                                TagRange range) {
    const uint32_t group = key.getGroup();
    const bool odd = (group & 1u) != 0;
    const bool byLowByte = odd && privateCreator != nullptr;
    const uint32_t number = byLowByte ? key.getElement() & 0xFFu : key.getElement();

    auto place = std::lower_bound(m_groups.begin(), m_groups.end(), group << 16, startsBefore);
    const bool found = place != m_groups.end() && (*place)->start() == group << 16 &&
                       (!odd || sameCreator((*place)->privateCreator(), privateCreator));
    if (!found) {
        const uint32_t groupCount = range.groups;
        std::unique_ptr<SDicomTagParserGroupData> node;
        if (odd)
            node = std::make_unique<SDicomTagParserPrivateGroupData>(group, groupCount, privateCreator);
        else
            node = std::make_unique<SDicomTagParserGroupData>(group, groupCount);
        place = m_groups.insert(place, std::move(node));
    }
    (*place)->addTag(number, key, handler, privateCreator, range.elements);
}

void SDicomTagGroupList::ReleaseTags() {
    m_groups.clear();
}

bool isGrouped = false;

int tagcomp(const void* a, const void* b) {
    const auto& left = *static_cast<const DcmTagKey*>(a);
    const auto& right = *static_cast<const DcmTagKey*>(b);
    if (left.getGroup() != right.getGroup()) return left.getGroup() < right.getGroup() ? -1 : 1;
    if (isGrouped && (left.getElement() == 0 || right.getElement() == 0)) return 0;
    if (left.getElement() != right.getElement()) return left.getElement() < right.getElement() ? -1 : 1;
    return 0;
}
