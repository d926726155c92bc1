#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcitem.h>
#include <dcmtk/dcmdata/dcsequen.h>
#include <dcmtk/dcmdata/dctag.h>
#include <dcmtk/ofstd/ofcond.h>

#include <map>
#include <memory>

/// Every failure to find or to reserve a private block.
extern const OFConditionConst EC_PBPrivateTagProblem;

/// The system's private block (group F215, creator "PB group A") in one DICOM item.
///
/// Fields are addressed by a one-byte key: in an item whose block is b, key k is the element (F215,bbkk). The
/// block is looked for on the first operation that needs it, which also moves elements of the older
/// generation into it; it is reserved, that is the creator element is written, only when something is stored.
/// An object for the stack: it borrows the item, and elements handed out stay the item's. Not thread safe.
class PBItem {
public:
    explicit PBItem(DcmItem& item);

    /// Finds the block, the first one that is free or ours, and relocates legacy elements into it; with
    /// `relocateOwnBlock` the elements of block 10 as well. False when there is no block left, a creator
    /// element cannot be read, or the block cannot be reserved for elements that move.
    bool calcPrivateBlock(bool relocateOwnBlock);
    /// Writes the creator element when it is missing. False before the block was found or when it cannot be
    /// written.
    bool checkAndReservePrivateBlock();
    /// The moving itself: elements with a key get it, the other elements of legacy blocks are deleted.
    bool relocateLegacyPrivateTags(bool relocateOwnBlock);
    /// Whether block BA or DA is of the older generation: its creator element is missing, empty or names it.
    bool isOldBlockOurs(int block);

    /// The tag of a key in this item, its block reserved; failures are ignored.
    DcmTag getTag(unsigned short key);
    OFCondition getTag(unsigned short key, DcmTag& tag);
    /// The tag that a key has in block 10.
    static DcmTag canonicTag(unsigned short key);
    /// The canonical tag of a private or legacy tag (key 0 for a legacy tag without a key); others stay
    /// unchanged.
    static DcmTag getCanonicKey(const DcmTag& tag);

    // Readers. With `searchIntoSub` a key that this item lacks is looked for in the items of its sequences,
    // depth first, each with a block of its own. EC_TagNotFound when it is nowhere.
    OFCondition findAndGetPBString(unsigned short key, const char*& value, bool searchIntoSub = false);
    OFCondition findAndGetPBElement(unsigned short key, DcmElement*& element, bool searchIntoSub = false);
    OFCondition findAndGetPBSequence(unsigned short key, DcmSequenceOfItems*& sequence,
                                     bool searchIntoSub = false);
    OFCondition findAndGetPBSequenceItem(unsigned short key, DcmItem*& item, long index = 0);

    // Writers; they reserve the block. Without `replaceOld` an existing element is an error.
    OFCondition putAndInsertPBString(unsigned short key, const char* value, bool replaceOld = true);
    OFCondition putAndInsertPBUint8Array(unsigned short key, const unsigned char* values, unsigned long count,
                                         bool replaceOld = true);
    OFCondition putAndInsertPBUint16Array(unsigned short key, const unsigned short* values,
                                          unsigned long count, bool replaceOld = true);
    OFCondition insertPBEmptyElement(unsigned short key, bool replaceOld = true);
    OFCondition findOrCreatePBSequenceItem(unsigned short key, DcmItem*& item, long index = 0);
    /// Inserts an element, a legacy one under its key. The item owns it on success, else the caller still
    /// does.
    OFCondition insertPB(DcmElement* element, bool replaceOld = false, bool checkInsertOrder = false);
    /// Inserts a copy of an element, a legacy one under its key, and relocates inside it when it is a
    /// sequence.
    OFCondition copyPrivateElement(DcmElement& element, bool replaceOld = true);
    /// Removes and deletes the element of a key; false when there was none.
    bool removePB(unsigned short key);
    /// Turns a legacy tag into the tag of its key in this item, VR from the dictionary; leaves other tags
    /// alone.
    OFCondition convertTag(DcmTag& tag);

    static bool isOurPrivateCreator(const DcmTag& tag);
    static bool isOurPrivateTagKey(const DcmTagKey& key);
    static bool isOurPrivateTag(const DcmTag& tag);
    /// Whether an object is the element of a key in this item; never looks for the block.
    bool isObjectOurPrivateElement(DcmObject* object, unsigned short key) const;
    /// A new element of the dictionary's VR for a tag, with our creator; null when the toolkit cannot make
    /// one.
    static std::unique_ptr<DcmElement> createNewDicomElement(const DcmTagKey& key);
    /// Removes and deletes every element of group F215.
    void nukePrivateTags();

private:
    static void createMap();
    static bool findKey(const DcmTagKey& tag, unsigned short& key);
    static bool isLegacyBlock(const DcmTagKey& tag);
    OFCondition locate(const char* reserveFailure);
    void moveTag(DcmElement& element, unsigned short key) const;
    template <typename Find>
    OFCondition search(Find find, bool searchIntoSub);

    DcmItem* m_item;
    unsigned short m_base = 0;  ///< the block's number in the high byte
    bool m_reserved = false;    ///< our creator element is there
    bool m_calculated = false;

    static std::map<DcmTagKey, unsigned short> m_privateKeyMap;
    static bool m_isMapCreated;
};
