#include "imgproc/overlayplanes.h"

#include <span>

#include "imgproc/elementvalues.h"
#include "imgproc/privatekeys.h"
#include "privateblock/PBItem.h"

COverlay* OverlayPlanes::ofGroup(uint16_t group) {
    if (group == m_group) return m_current;
    m_group = group;
    m_current = m_overlays.at(m_overlays.createNewOverlay());
    if (m_current == nullptr)
        DCMDATA_WARN("There is no slot left for overlay group " << std::hex << group << ", it is ignored");
    return m_current;
}

void OverlayPlanes::readData(DcmElement& element) {
    COverlay* overlay = ofGroup(element.getGTag());
    if (overlay == nullptr) return;
    // A sequence in this place (compressed overlay data) has no bytes of its own.
    const std::span<uint8_t> bytes = valueBytes(element);
    if (bytes.empty())
        DCMDATA_WARN("Overlay data of group " << std::hex << element.getGTag()
                                              << " is empty or cannot be read");
    const auto length = static_cast<unsigned int>(bytes.size());
    overlay->initData(length, OVERLAY_READ_DATA);
    overlay->putData(bytes.data(), length);
}

void OverlayPlanes::expectInSamples(uint16_t rows, uint16_t columns) {
    const uint64_t bits = uint64_t{rows} * columns;
    for (int slot = 0; slot < m_overlays.count(); ++slot) {
        COverlay* overlay = m_overlays.at(slot);
        if (overlay->hasData()) continue;
        overlay->setRows(rows);
        overlay->setColumns(columns);
        overlay->initData(static_cast<unsigned int>((bits + 7) / 8), OVERLAY_READ_CHOOSE);
        if (overlay->bitPosition() < 16) m_inSamples = true;
    }
}

template <typename Sample>
void OverlayPlanes::takeBitsOf(const Sample* samples, size_t count) {
    if (!m_inSamples) return;
    for (int slot = 0; slot < m_overlays.count(); ++slot) {
        COverlay* overlay = m_overlays.at(slot);
        if (overlay->takesSampleBits()) overlay->addSampleBits(samples, count);
    }
}

template void OverlayPlanes::takeBitsOf(const uint16_t* samples, size_t count);
template void OverlayPlanes::takeBitsOf(const uint8_t* samples, size_t count);

void OverlayPlanes::finish() {
    for (int slot = 0; slot < m_overlays.count(); ++slot)
        m_overlays.at(slot)->finalizeData();
}

bool OverlayPlanes::store(DcmItem& dataset) const {
    PBItem block(dataset);
    for (int slot = 0; slot < m_overlays.count(); ++slot) {
        DcmItem* item = nullptr;
        if (block.findOrCreatePBSequenceItem(privatekeys::kOverlays, item, slot).bad() || item == nullptr)
            return false;
        PBItem overlayBlock(*item);
        const auto& bitmap = m_overlays.at(slot)->data();
        if (overlayBlock.putAndInsertPBString(privatekeys::kOverlayCompression, "NONE").bad() ||
            overlayBlock.putAndInsertPBUint8Array(privatekeys::kOverlayBitmap, bitmap.data(), bitmap.size())
                .bad())
            return false;
    }
    return true;
}
