#include "privateblock/privatetags.h"

#include "privateblock/PBItem.h"
#include "privateblock/blocklog.h"
#include "privateblock/itemwalk.h"
#include "privateblock/privatedictionary.h"

namespace {

void handleItem(DcmItem& item, bool relocateOwnBlock) {
    if (!PBItem(item).calcPrivateBlock(relocateOwnBlock))
        logPrivateBlock("Error: couldn't calculate private block");
}

void handleTree(DcmItem* item, bool relocateOwnBlock) {
    if (item == nullptr) return;
    handleItem(*item, relocateOwnBlock);
    walkSubItems(*item, [relocateOwnBlock](DcmItem& sub) {
        handleItem(sub, relocateOwnBlock);
        return true;
    });
}

// The tag of a canonical tag's key in the item's block; false when the tag is not canonical or the block is
// not there.
bool actualTag(DcmItem* item, const DcmTagKey& canonic, DcmTag& actual) {
    if (item == nullptr || canonic.getGroup() != kPrivateGroup || canonic.getElement() >> 8 != 0x10)
        return false;
    return PBItem(*item).getTag(canonic.getElement() & 0xFF, actual).good();
}

}  // namespace

void handlePrivateTags(DcmItem* item) {
    handleTree(item, false);
}

void handleCanonicAndOldPrivateTags(DcmItem* item) {
    handleTree(item, true);
}

void checkAndUpdateCanonicPrivateTag(DcmItem* item, DcmTag& tag) {
    DcmTag actual;
    if (actualTag(item, tag, actual)) tag = actual;
}

void checkAndUpdateCanonicPrivateTag(DcmItem* item, unsigned short group, unsigned short& element) {
    DcmTag actual;
    if (actualTag(item, DcmTagKey(group, element), actual)) element = actual.getElement();
}
