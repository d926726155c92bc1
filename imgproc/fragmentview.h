#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcpixseq.h>
#include <dcmtk/dcmdata/dcpxitem.h>

#include <span>

/// A sequence of fragments as the decoders see it, over an index of fragments that lie elsewhere (borrowed;
/// number 0 is the offset table). The toolkit counts through a list for every fragment that is asked for,
/// which takes the square of their number for a whole object.
class FragmentView : public DcmPixelSequence {
public:
    explicit FragmentView(std::span<DcmPixelItem* const> fragments);

    unsigned long card() const override { return static_cast<unsigned long>(m_fragments.size()); }
    OFCondition getItem(DcmPixelItem*& item, const unsigned long number) override;
    DcmObject* nextInContainer(const DcmObject* object) override;

private:
    std::span<DcmPixelItem* const> m_fragments;
    size_t m_current = 0;  ///< number of the fragment that was asked for last
};
