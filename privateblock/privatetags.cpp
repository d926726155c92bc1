#include "privateblock/privatetags.h"

#include <errno.h>
#include <syslog.h>

#include <cstdarg>

#include "privateblock/PBItem.h"
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

// The connection stays open and the process gets its own name back: a process that has given up sockets could
// not connect again, and the program's own log may go the same way.
void logPrivateBlock(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    openlog("PBItem", LOG_PID, LOG_LOCAL3);
    vsyslog(LOG_DEBUG, format, arguments);
    openlog(program_invocation_short_name, 0, LOG_USER);
    va_end(arguments);
}
