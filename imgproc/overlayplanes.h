#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcelem.h>
#include <dcmtk/dcmdata/dcitem.h>

#include <cstddef>
#include <cstdint>

#include "imgproc/overlay.h"

/// The overlays of one object on their way from its groups 60xx and its pixel samples into the private block.
/// Overlay troubles never fail a conversion.
class OverlayPlanes {
public:
    /// The overlay of a group: a new one when the group is another than at the last call. Null, with a
    /// warning, when no slot is left.
    COverlay* ofGroup(uint16_t group);

    /// The bitmap, Overlay Data (60xx,3000), of the element's group.
    void readData(DcmElement& element);

    /// Starts a bitmap of rows x columns pixels for every overlay that came without one: its bits are those
    /// of the samples, where its bit position says so.
    void expectInSamples(uint16_t rows, uint16_t columns);

    /// Collects the overlay bits of decoded samples, in the order of the pixels.
    void takeBits(const uint16_t* samples, size_t count) { takeBitsOf(samples, count); }
    void takeBits(const uint8_t* samples, size_t count) { takeBitsOf(samples, count); }

    /// Whether bits of the samples are wanted.
    bool inSamples() const { return m_inSamples; }

    /// Settles every overlay's status when nothing more will come.
    void finish();

    /// Writes the bitmaps into the private block of `dataset`, an item for each; false when one cannot be.
    bool store(DcmItem& dataset) const;

    COverlayArray& array() { return m_overlays; }

private:
    template <typename Sample>
    void takeBitsOf(const Sample* samples, size_t count);

    COverlayArray m_overlays;
    COverlay* m_current = nullptr;  ///< the overlay of m_group
    uint16_t m_group = 0;
    bool m_inSamples = false;  ///< an overlay expects bits of the samples
};
