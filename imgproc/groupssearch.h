#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdeftag.h>

#include <cstdint>
#include <optional>

#include "privateblock/privatedictionary.h"

/// Where the items of the per-frame functional groups (5200,9230) lie in an object's file, as positions.
struct FrameGroups {
    uint64_t begin = 0;     ///< of the sequence
    uint64_t items = 0;     ///< of the first item
    uint64_t itemsEnd = 0;  ///< of what follows the last item
    uint64_t end = 0;       ///< of what follows the sequence
};

/// Finds the per-frame functional groups on the scan's way, unless something speaks against leaving them
/// where they are.
class GroupsSearch {
public:
    /// An element of the data set, which begins at `position`; `sorted`: after all before it, and not the
    /// first of all, by which the parser guesses the encoding where that is not told.
    void element(const DcmTagKey& tag, uint64_t position, bool sorted) {
        const DcmTagKey groups = DCM_PerFrameFunctionalGroupsSequence;
        m_refused = m_refused || (m_found && !(tag > groups)) || (tag == groups && !sorted) ||
                    tag == DcmTagKey(groups.getGroup(), 0);
        if (tag == groups) m_place.begin = position;
    }
    /// Something within the groups.
    void content(const DcmTagKey& tag) { m_refused = m_refused || tag.getGroup() == kPrivateGroup; }
    /// The element was the sequence; `known`: its items are written as the data set is.
    void enter(uint64_t items, bool known) {
        m_inside = m_found = true;
        m_refused = m_refused || !known;
        m_place.items = items;
    }
    void leave(uint64_t itemsEnd, uint64_t end) {
        m_inside = false;
        m_place.itemsEnd = itemsEnd;
        m_place.end = end;
    }
    bool inside() const { return m_inside; }
    std::optional<FrameGroups> place() const {
        if (m_refused || !m_found || m_inside || m_place.items == m_place.itemsEnd) return std::nullopt;
        return m_place;
    }

private:
    FrameGroups m_place;
    bool m_inside = false;
    bool m_found = false;
    bool m_refused = false;
};
