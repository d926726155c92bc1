#include "privateblock/itemwalk.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcelem.h>
#include <dcmtk/dcmdata/dcitem.h>
#include <dcmtk/dcmdata/dcsequen.h>

#include <algorithm>

std::vector<DcmElement*> elementsOfGroup(DcmItem& item, unsigned short group) {
    std::vector<DcmElement*> elements;
    for (DcmObject* object = item.nextInContainer(nullptr); object != nullptr;
         object = item.nextInContainer(object))
        if (object->getGTag() == group) elements.push_back(static_cast<DcmElement*>(object));
    return elements;
}

namespace {

// Puts the items of an item's sequences on top of the stack, the first of them topmost.
void pushSubItems(DcmItem& item, std::vector<DcmItem*>& stack) {
    const size_t bottom = stack.size();
    for (DcmObject* object = item.nextInContainer(nullptr); object != nullptr;
         object = item.nextInContainer(object)) {
        // The pixel sequence of encapsulated pixel data derives from the same class but has no items of this
        // kind.
        auto* sequence = object->ident() == EVR_SQ ? dynamic_cast<DcmSequenceOfItems*>(object) : nullptr;
        if (sequence == nullptr) continue;
        for (DcmObject* sub = sequence->nextInContainer(nullptr); sub != nullptr;
             sub = sequence->nextInContainer(sub))
            if (auto* subItem = dynamic_cast<DcmItem*>(sub)) stack.push_back(subItem);
    }
    std::reverse(stack.begin() + static_cast<ptrdiff_t>(bottom), stack.end());
}

}  // namespace

void walkSubItems(DcmItem& item, const std::function<bool(DcmItem&)>& visit) {
    std::vector<DcmItem*> stack;
    pushSubItems(item, stack);
    while (!stack.empty()) {
        DcmItem* next = stack.back();
        stack.pop_back();
        if (!visit(*next)) return;
        pushSubItems(*next, stack);
    }
}
