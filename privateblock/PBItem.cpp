#include "privateblock/PBItem.h"

#include <dcmtk/dcmdata/dcelem.h>

#include <mutex>
#include <string>
#include <vector>

#include "hsutils/Utils.h"
#include "privateblock/itemwalk.h"
#include "privateblock/legacytags.h"
#include "privateblock/privatedictionary.h"
#include "privateblock/privatetags.h"

makeOFConditionConst(EC_PBPrivateTagProblem, 1051, 15, OF_error, "PBItem Private Tag Relocation Error");

namespace {

// The log is read by people who look for exactly these words, the misspelt ones too.
constexpr char kCouldNotReserve[] = "couldn't reserve";
constexpr char kCoulnotReserve[] = "couln't reserve";

}  // namespace

std::map<DcmTagKey, unsigned short> PBItem::m_privateKeyMap;
bool PBItem::m_isMapCreated = false;

PBItem::PBItem(DcmItem& item) : m_item(&item) {
    createMap();
}

void PBItem::createMap() {
    static std::once_flag created;
    std::call_once(created, [] {
        registerPrivateDictionary();
        for (const LegacyTag& legacy : legacyTags())
            m_privateKeyMap.emplace(DcmTagKey(kPrivateGroup, legacy.element), legacy.key);
        m_isMapCreated = true;
    });
}

bool PBItem::findKey(const DcmTagKey& tag, unsigned short& key) {
    const auto found = m_privateKeyMap.find(tag);
    if (found == m_privateKeyMap.end()) return false;
    key = found->second;
    return true;
}

bool PBItem::isLegacyBlock(const DcmTagKey& tag) {
    const int block = tag.getElement() >> 8;
    return tag.getGroup() == kPrivateGroup && (block == kLegacyBlocks[0] || block == kLegacyBlocks[1]);
}

bool PBItem::calcPrivateBlock(bool relocateOwnBlock) {
    if (m_calculated) return true;
    // Few items have any element of the group, and the item's own search begins at its first element each
    // time.
    if (elementsOfGroup(*m_item, kPrivateGroup).empty()) {
        m_base = 0x1000;
        m_reserved = false;
        m_calculated = true;
        return true;
    }
    for (unsigned short block = 0x10; block <= 0xFF; ++block) {
        const char* creator = nullptr;
        const OFCondition found = m_item->findAndGetString(DcmTagKey(kPrivateGroup, block), creator);
        const bool isFree = found == EC_TagNotFound;
        if (!isFree && found.bad()) return false;
        const bool isOurs = creator != nullptr && unpadded(creator) == kPrivateCreator;
        if (!isFree && !isOurs) continue;
        m_base = static_cast<unsigned short>(block << 8);
        m_reserved = isOurs;
        m_calculated = true;
        return relocateLegacyPrivateTags(relocateOwnBlock);
    }
    return false;
}

bool PBItem::checkAndReservePrivateBlock() {
    if (m_reserved) return true;
    if (!m_calculated) return false;
    const DcmTag creatorTag(kPrivateGroup, static_cast<Uint16>(m_base >> 8), DcmVR(EVR_LO));
    m_reserved = m_item->putAndInsertString(creatorTag, kPrivateCreator, OFTrue).good();
    return m_reserved;
}

bool PBItem::isOldBlockOurs(int block) {
    const char* creator = nullptr;
    const OFCondition found =
        m_item->findAndGetString(DcmTagKey(kPrivateGroup, static_cast<Uint16>(block)), creator);
    if (found == EC_TagNotFound) return true;
    if (found.bad()) return false;
    const std::string text = creator != nullptr ? unpadded(creator) : "";
    return text.empty() || text == kLegacyPrivateCreator;
}

// The element keeps the VR it has, whatever the dictionary thinks: its class and its value belong to that VR.
void PBItem::moveTag(DcmElement& element, unsigned short key) const {
    auto& tag = const_cast<DcmTag&>(element.getTag());
    tag.setElement(static_cast<Uint16>(m_base | (key & 0xFF)));
    tag.setPrivateCreator(kPrivateCreator);
}

bool PBItem::relocateLegacyPrivateTags(bool relocateOwnBlock) {
    const bool oursBA = isOldBlockOurs(0xBA);
    const bool oursDA = isOldBlockOurs(0xDA);
    DcmItem scratch;
    for (DcmElement* element : elementsOfGroup(*m_item, kPrivateGroup)) {
        const DcmTagKey tag = element->getTag();
        const int block = tag.getElement() >> 8;
        unsigned short key = tag.getElement() & 0xFF;
        const bool legacy = (block == 0xBA && oursBA) || (block == 0xDA && oursDA);
        if (!legacy && !(block == 0x10 && relocateOwnBlock)) continue;
        std::unique_ptr<DcmElement> owned(m_item->remove(element));
        if (!owned || (legacy && !findKey(tag, key))) continue;
        moveTag(*owned, key);
        if (scratch.insert(owned.get(), OFFalse).good()) owned.release();
    }
    for (int block : kLegacyBlocks)
        if (block == 0xBA ? oursBA : oursDA)
            m_item->findAndDeleteElement(DcmTagKey(kPrivateGroup, static_cast<Uint16>(block)));

    if (scratch.card() == 0) return true;
    if (!checkAndReservePrivateBlock()) return false;
    while (scratch.card() > 0) {
        std::unique_ptr<DcmElement> element(scratch.remove(0UL));
        if (element && m_item->insert(element.get(), OFFalse).good()) element.release();
    }
    return true;
}

OFCondition PBItem::locate(const char* reserveFailure) {
    if (!calcPrivateBlock(false)) {
        logPrivateBlock("couldn't calc");
        return EC_PBPrivateTagProblem;
    }
    if (reserveFailure != nullptr && !checkAndReservePrivateBlock()) {
        logPrivateBlock("%s", reserveFailure);
        return EC_PBPrivateTagProblem;
    }
    return EC_Normal;
}

OFCondition PBItem::getTag(unsigned short key, DcmTag& tag) {
    const OFCondition located = locate("couldn't reserve");
    if (located.bad()) return located;
    tag = DcmTag(kPrivateGroup, static_cast<Uint16>(m_base | (key & 0xFF)), kPrivateCreator);
    return EC_Normal;
}

DcmTag PBItem::getTag(unsigned short key) {
    if (calcPrivateBlock(false)) checkAndReservePrivateBlock();
    return DcmTag(kPrivateGroup, static_cast<Uint16>(m_base | (key & 0xFF)), kPrivateCreator);
}

DcmTag PBItem::canonicTag(unsigned short key) {
    createMap();
    return DcmTag(kPrivateGroup, static_cast<Uint16>(0x1000 | (key & 0xFF)), kPrivateCreator);
}

DcmTag PBItem::getCanonicKey(const DcmTag& tag) {
    createMap();
    if (tag.getGroup() != kPrivateGroup) return tag;
    unsigned short key = tag.getElement() & 0xFF;
    if (isLegacyBlock(tag) && !findKey(tag, key)) key = 0;
    return canonicTag(key);
}

bool PBItem::isOurPrivateCreator(const DcmTag& tag) {
    return tag.getGroup() == kPrivateGroup && tag.getElement() >= 0x0010 && tag.getElement() <= 0x00FF;
}

bool PBItem::isOurPrivateTagKey(const DcmTagKey& key) {
    return key.getGroup() == kPrivateGroup && key.getElement() > 0x0FFF;
}

bool PBItem::isOurPrivateTag(const DcmTag& tag) {
    const unsigned group = tag.getGroup();
    const char* creator = tag.getPrivateCreator();
    return group % 2 == 1 && group >= 0x0009 && group <= 0xFFFD && creator != nullptr &&
           unpadded(creator) == kPrivateCreator;
}

bool PBItem::isObjectOurPrivateElement(DcmObject* object, unsigned short key) const {
    return object != nullptr &&
           object->getTag() == DcmTagKey(kPrivateGroup, static_cast<Uint16>(m_base | (key & 0xFF)));
}

std::unique_ptr<DcmElement> PBItem::createNewDicomElement(const DcmTagKey& key) {
    createMap();
    DcmElement* element = nullptr;
    DcmItem::newDicomElement(element, key, kPrivateCreator);
    return std::unique_ptr<DcmElement>(element);
}

void PBItem::nukePrivateTags() {
    for (DcmElement* element : elementsOfGroup(*m_item, kPrivateGroup))
        std::unique_ptr<DcmElement>(m_item->remove(element));
}

// `find` looks a tag up in one item; the search goes on with the items below as long as the tag is not found.
template <typename Find>
OFCondition PBItem::search(Find find, bool searchIntoSub) {
    OFCondition status = locate(nullptr);
    if (status.bad()) return status;
    status = find(*m_item, m_base);
    if (status != EC_TagNotFound || !searchIntoSub) return status;
    walkSubItems(*m_item, [&](DcmItem& sub) {
        PBItem block(sub);
        OFCondition found = block.locate(nullptr);
        if (found.good()) found = find(sub, block.m_base);
        if (found.bad()) return true;
        status = found;
        return false;
    });
    return status;
}

OFCondition PBItem::findAndGetPBString(unsigned short key, const char*& value, bool searchIntoSub) {
    value = nullptr;
    return search(
        [&](DcmItem& item, unsigned short base) {
            return item.findAndGetString(DcmTagKey(kPrivateGroup, base | (key & 0xFF)), value);
        },
        searchIntoSub);
}

OFCondition PBItem::findAndGetPBElement(unsigned short key, DcmElement*& element, bool searchIntoSub) {
    element = nullptr;
    return search(
        [&](DcmItem& item, unsigned short base) {
            return item.findAndGetElement(DcmTagKey(kPrivateGroup, base | (key & 0xFF)), element);
        },
        searchIntoSub);
}

OFCondition PBItem::findAndGetPBSequence(unsigned short key, DcmSequenceOfItems*& sequence,
                                         bool searchIntoSub) {
    sequence = nullptr;
    return search(
        [&](DcmItem& item, unsigned short base) {
            return item.findAndGetSequence(DcmTagKey(kPrivateGroup, base | (key & 0xFF)), sequence);
        },
        searchIntoSub);
}

OFCondition PBItem::findAndGetPBSequenceItem(unsigned short key, DcmItem*& item, long index) {
    item = nullptr;
    const OFCondition located = locate(nullptr);
    if (located.bad()) return located;
    return m_item->findAndGetSequenceItem(DcmTagKey(kPrivateGroup, m_base | (key & 0xFF)), item, index);
}

OFCondition PBItem::putAndInsertPBString(unsigned short key, const char* value, bool replaceOld) {
    const OFCondition located = locate(kCoulnotReserve);
    return located.bad() ? located : m_item->putAndInsertString(getTag(key), value, replaceOld);
}

OFCondition PBItem::putAndInsertPBUint8Array(unsigned short key, const unsigned char* values,
                                             unsigned long count, bool replaceOld) {
    const OFCondition located = locate(kCouldNotReserve);
    return located.bad() ? located : m_item->putAndInsertUint8Array(getTag(key), values, count, replaceOld);
}

OFCondition PBItem::putAndInsertPBUint16Array(unsigned short key, const unsigned short* values,
                                              unsigned long count, bool replaceOld) {
    const OFCondition located = locate(kCouldNotReserve);
    return located.bad() ? located : m_item->putAndInsertUint16Array(getTag(key), values, count, replaceOld);
}

OFCondition PBItem::insertPBEmptyElement(unsigned short key, bool replaceOld) {
    const OFCondition located = locate(kCouldNotReserve);
    return located.bad() ? located : m_item->insertEmptyElement(getTag(key), replaceOld);
}

OFCondition PBItem::findOrCreatePBSequenceItem(unsigned short key, DcmItem*& item, long index) {
    item = nullptr;
    const OFCondition located = locate(kCoulnotReserve);
    return located.bad() ? located : m_item->findOrCreateSequenceItem(getTag(key), item, index);
}

OFCondition PBItem::insertPB(DcmElement* element, bool replaceOld, bool checkInsertOrder) {
    if (element == nullptr) return EC_IllegalParameter;
    const OFCondition located = locate(kCouldNotReserve);
    if (located.bad()) return located;
    // The tag is changed before the insertion, so that the item stays sorted and the key stays unique.
    const DcmTag before = element->getTag();
    unsigned short key = 0;
    if (isLegacyBlock(before) && isOldBlockOurs(before.getElement() >> 8) && findKey(before, key))
        moveTag(*element, key);
    const OFCondition inserted = m_item->insert(element, replaceOld, checkInsertOrder);
    if (inserted.bad()) const_cast<DcmTag&>(element->getTag()) = before;
    return inserted;
}

OFCondition PBItem::copyPrivateElement(DcmElement& element, bool replaceOld) {
    OFCondition status = locate(nullptr);
    if (status.bad()) return status;
    std::unique_ptr<DcmObject> object(element.clone());
    auto* copy = dynamic_cast<DcmElement*>(object.get());
    if (copy == nullptr) {
        logPrivateBlock("couldn't clone");
        return EC_PBPrivateTagProblem;
    }
    if (copy->getGTag() == kPrivateGroup) {
        status = locate(kCoulnotReserve);
        if (status.bad()) return status;
        unsigned short key = 0;
        if (findKey(copy->getTag(), key)) moveTag(*copy, key);
    }
    status = m_item->insert(copy, replaceOld);
    if (status.bad()) return status;
    object.release();
    if (auto* sequence = dynamic_cast<DcmSequenceOfItems*>(copy))
        for (unsigned long i = 0; i < sequence->card(); ++i)
            handlePrivateTags(sequence->getItem(i));
    return status;
}

bool PBItem::removePB(unsigned short key) {
    if (locate(nullptr).bad()) return false;
    return m_item->findAndDeleteElement(DcmTagKey(kPrivateGroup, m_base | (key & 0xFF))).good();
}

OFCondition PBItem::convertTag(DcmTag& tag) {
    if (!isLegacyBlock(tag)) return EC_Normal;
    const OFCondition located = locate(kCoulnotReserve);
    unsigned short key = 0;
    if (located.bad() || !findKey(tag, key)) return located;
    tag.setElement(static_cast<Uint16>(m_base | key));
    tag.setPrivateCreator(kPrivateCreator);
    tag.lookupVRinDictionary();
    return EC_Normal;
}
