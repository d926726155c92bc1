#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcelem.h>
#include <dcmtk/dcmdata/dcitem.h>

#include "imgproc/taglist.h"

/// What a tag handler sees of the parser that called it. Handlers cast it back to the class they belong to.
class IDicomTagParser2 {
public:
    virtual ~IDicomTagParser2() = default;

    /// Asks the walk to take the current element out of the item and to destroy it when it moves on.
    virtual void removeElement() = 0;
};

/// Walks the elements of one item in tag order and calls the handlers that are registered for them.
/// One walk at a time; not for use by several threads.
class CDicomTagParser2 : public IDicomTagParser2 {
public:
    CDicomTagParser2() = default;
    CDicomTagParser2(const CDicomTagParser2&) = delete;
    CDicomTagParser2& operator=(const CDicomTagParser2&) = delete;

    void removeElement() override { m_remove = true; }

    /// Called at the start of every walk.
    virtual void InitPrivateData() = 0;

    /// Walks `item`; `data` is kept for the handlers. Elements that handlers or `preprocess` ask to remove
    /// leave the item and are destroyed.
    void parseTags(DcmItem* item, void* data, SDicomTagGroupList* list, TagPreprocess preprocess);

    /// Handlers that only look at elements, called after the table's own of the walk. Being a table of their
    /// own, they hide none of those: of the nodes of one table, one alone is active.
    SDicomTagGroupList& observers() { return m_observers; }

    /// The element that is being dispatched (null outside a walk); owned by its item.
    DcmElement* currentElement() const { return m_element; }

    /// Lets a handler be called for an element of a nested item. The walk itself does not depend on it; the
    /// caller puts the previous element back.
    void setCurrentElement(DcmElement* element) { m_element = element; }

    DcmItem* currentItem() const { return m_item; }
    void* parseData() const { return m_data; }

    /// Position of the current element in the item, removed elements not counted; -1 before the first.
    int elementIndex() const { return m_elementIndex; }

private:
    SDicomTagGroupList m_observers;
    bool m_remove = false;
    DcmElement* m_element = nullptr;
    void* m_data = nullptr;
    DcmItem* m_item = nullptr;
    int m_elementIndex = -1;
};
