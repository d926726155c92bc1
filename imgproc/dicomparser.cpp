#include "imgproc/dicomparser.h"

#include <dcmtk/dcmdata/dclist.h>

namespace {

/// The group node that is active, with the state of this walk: at most one at a time.
class ActiveGroup {
public:
    ActiveGroup() = default;
    ActiveGroup(const ActiveGroup&) = delete;
    ActiveGroup& operator=(const ActiveGroup&) = delete;
    ~ActiveGroup() { release(); }

    void activate(IDicomTagParserData* node) {
        release();
        m_state = node->InitTag();
        m_node = node;
    }

    void offer(uint32_t tag, IDicomTagParser2* parser) {
        if (m_node != nullptr && !m_node->CheckTag(tag, parser, m_state)) release();
    }

private:
    void release() {
        if (m_node != nullptr) m_node->ReleaseTagData(m_state);
        m_node = nullptr;
        m_state = nullptr;
    }

    IDicomTagParserData* m_node = nullptr;
    void* m_state = nullptr;
};

/// One table's way through the walk: its cursor only moves forward.
class TableWalk {
public:
    explicit TableWalk(const SDicomTagGroupList& table) : m_groups(table.groups()) {}

    void offer(uint32_t tag, IDicomTagParser2* parser) {
        if (tag != 0xFFFFFFFFu) {
            for (; m_cursor < m_groups.size() && m_groups[m_cursor]->start() <= tag; ++m_cursor)
                if (m_groups[m_cursor]->contains(tag)) m_active.activate(m_groups[m_cursor].get());
        }
        m_active.offer(tag, parser);
    }

private:
    const std::vector<std::unique_ptr<SDicomTagParserGroupData>>& m_groups;
    size_t m_cursor = 0;
    ActiveGroup m_active;
};

/// The list behind an item, whose cursor stands where the walk is. The item's own removal searches for the
/// element from the start, which takes minutes in an object of some megabytes that is full of elements to
/// remove.
class ItemList : public DcmItem {
public:
    static DcmList& of(DcmItem& item) { return *(item.*&ItemList::elementList); }
};

/// Takes `element`, the predecessor of `next` (null: the last one), out of the item and destroys it.
void removeBefore(DcmItem& item, DcmElement* element, const DcmObject* next) {
    DcmList& list = ItemList::of(item);
    list.seek(next != nullptr && list.get() == next ? ELP_prev : ELP_last);
    if (list.get() == element)
        delete list.remove();
    else
        delete item.remove(element);
}

}  // namespace

void CDicomTagParser2::parseTags(DcmItem* item, void* data, SDicomTagGroupList* list,
                                 TagPreprocess preprocess) {
    m_item = item;
    m_data = data;
    m_elementIndex = -1;
    m_element = nullptr;
    InitPrivateData();
    m_remove = false;

    TableWalk handlers(*list);
    TableWalk observers(m_observers);
    DcmElement* element = nullptr;
    while (true) {
        auto* next = static_cast<DcmElement*>(item->nextInContainer(element));
        if (m_remove) {
            removeBefore(*item, element, next);
        } else {
            ++m_elementIndex;
        }
        m_remove = false;
        element = next;
        m_element = element;
        if (element == nullptr) break;
        if (!preprocess(this)) continue;

        const uint32_t tag = uint32_t{element->getGTag()} << 16 | element->getETag();
        handlers.offer(tag, this);
        observers.offer(tag, this);
    }
}
