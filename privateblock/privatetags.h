#pragma once

class DcmItem;
class DcmTag;

/// Finds the private block of an item and of every item below it, which moves the older generation's elements
/// into it. Never fails: an item without a free block is logged and left alone.
void handlePrivateTags(DcmItem* item);

/// The same, and moves elements that stand in block 10 into the item's actual block.
void handleCanonicAndOldPrivateTags(DcmItem* item);

/// Turns a canonical tag (F215,10kk) into the tag of key kk in the item's actual block, if that can be
/// reserved.
void checkAndUpdateCanonicPrivateTag(DcmItem* item, DcmTag& tag);
void checkAndUpdateCanonicPrivateTag(DcmItem* item, unsigned short group, unsigned short& element);

/// Writes one diagnostic line to syslog: identity "PBItem", facility LOCAL3, priority debug; printf's format.
[[gnu::format(printf, 1, 2)]] void logPrivateBlock(const char* format, ...);
