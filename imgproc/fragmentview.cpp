#include "imgproc/fragmentview.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>

FragmentView::FragmentView(std::span<DcmPixelItem* const> fragments)
    : DcmPixelSequence(DCM_PixelSequenceTag), m_fragments(fragments) {}

OFCondition FragmentView::getItem(DcmPixelItem*& item, const unsigned long number) {
    item = number < m_fragments.size() ? m_fragments[number] : nullptr;
    if (item == nullptr) return EC_IllegalCall;
    m_current = number;
    return EC_Normal;
}

DcmObject* FragmentView::nextInContainer(const DcmObject* object) {
    if (object == nullptr) {
        m_current = 0;
    } else {
        if (m_current >= m_fragments.size() || m_fragments[m_current] != object)
            m_current = static_cast<size_t>(std::ranges::find(m_fragments, object) - m_fragments.begin());
        ++m_current;
    }
    return m_current < m_fragments.size() ? m_fragments[m_current] : nullptr;
}
