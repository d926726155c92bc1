#pragma once

#include <functional>
#include <vector>

class DcmElement;
class DcmItem;

/// The elements of one group in the item's order; a snapshot, so that the item may change while it is used.
std::vector<DcmElement*> elementsOfGroup(DcmItem& item, unsigned short group);

/// Visits every item below `item`, in order, an item before the items inside it, until the visitor returns
/// false. The visitor may change the item that it visits. Takes no stack for nesting: objects may be nested
/// as deep as they like.
void walkSubItems(DcmItem& item, const std::function<bool(DcmItem&)>& visit);
