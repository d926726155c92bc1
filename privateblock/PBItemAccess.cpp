#include <dcmtk/dcmdata/dcelem.h>

#include "privateblock/PBItem.h"
#include "privateblock/blocklog.h"
#include "privateblock/itemwalk.h"
#include "privateblock/privatedictionary.h"
#include "privateblock/privatetags.h"

namespace {

// The log is read by people who look for exactly these words, the misspelt ones too.
constexpr char kCouldNotReserve[] = "couldn't reserve";
constexpr char kCoulnotReserve[] = "couln't reserve";

}  // namespace

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
