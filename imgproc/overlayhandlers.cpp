#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctypes.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "imgproc/bitshifts.h"
#include "imgproc/imageprocess.h"
#include "imgproc/valuebytes.h"
#include "imgproc/valuetext.h"

// The attributes of overlay groups, and overlay bits in the pixel samples.

namespace {

CImageProcess& processOf(IDicomTagParser2* parser) {
    return *static_cast<CImageProcess*>(parser);
}

std::uint16_t currentNumber(IDicomTagParser2* parser) {
    Uint16 value = 0;
    processOf(parser).currentElement()->getUint16(value);
    return value;
}

template <typename Sample>
void keepBits(Sample* samples, std::size_t count, Sample mask) {
    for (std::size_t i = 0; i < count; ++i)
        samples[i] = static_cast<Sample>(samples[i] & mask);
}

/// Keeps the bits of the mask, whose highest bit is the sign, and repeats the sign in all bits above it.
void keepSignedBits(std::uint16_t* samples, std::size_t count, std::uint16_t mask, std::uint16_t sign) {
    for (std::size_t i = 0; i < count; ++i)
        samples[i] = static_cast<std::uint16_t>(((samples[i] & mask) ^ sign) - sign);
}

}  // namespace

bool CImageProcess::checkAndSetCurrentOverLay() {
    const std::uint16_t group = currentElement()->getGTag();
    if (group != m_currentOverlayGroup) {
        m_currentOverlaySlot = m_overlays.createNewOverlay();
        m_currentOverlayGroup = group;
        if (m_currentOverlaySlot < 0)
            DCMDATA_WARN("There is no slot left for overlay group " << std::hex << group
                                                                    << ", it is ignored");
    }
    return m_currentOverlaySlot >= 0;
}

void CImageProcess::fTag2DCM_OverlayRows(IDicomTagParser2* parser) {
    CImageProcess& process = processOf(parser);
    if (process.checkAndSetCurrentOverLay())
        process.m_overlays.at(process.m_currentOverlaySlot)->setRows(currentNumber(parser));
}

void CImageProcess::fTag2DCM_OverlayColumns(IDicomTagParser2* parser) {
    CImageProcess& process = processOf(parser);
    if (process.checkAndSetCurrentOverLay())
        process.m_overlays.at(process.m_currentOverlaySlot)->setColumns(currentNumber(parser));
}

void CImageProcess::fTag2DCM_OverlayType(IDicomTagParser2* parser) {
    CImageProcess& process = processOf(parser);
    if (!process.checkAndSetCurrentOverLay()) return;
    process.m_overlays.at(process.m_currentOverlaySlot)->setRegion(textOf(*process.currentElement()) == "R");
}

void CImageProcess::fTag2DCM_OverlayOrigin(IDicomTagParser2* parser) {
    CImageProcess& process = processOf(parser);
    if (!process.checkAndSetCurrentOverLay()) return;
    Sint16 row = 0;
    Sint16 column = 0;
    process.currentElement()->getSint16(row, 0);
    process.currentElement()->getSint16(column, 1);
    process.m_overlays.at(process.m_currentOverlaySlot)->setOrigin(row, column);
}

void CImageProcess::fTag2DCM_OverlayBitsAllocated(IDicomTagParser2* parser) {
    CImageProcess& process = processOf(parser);
    if (process.checkAndSetCurrentOverLay())
        process.m_overlays.at(process.m_currentOverlaySlot)->setBitsAllocated(currentNumber(parser));
}

void CImageProcess::fTag2DCM_OverlayBitPosition(IDicomTagParser2* parser) {
    CImageProcess& process = processOf(parser);
    if (process.checkAndSetCurrentOverLay())
        process.m_overlays.at(process.m_currentOverlaySlot)->setBitPosition(currentNumber(parser));
}

void CImageProcess::fTag2DCM_OverlayData(IDicomTagParser2* parser) {
    CImageProcess& process = processOf(parser);
    if (process.checkAndSetCurrentOverLay()) {
        DcmElement* element = process.currentElement();
        // A sequence in this place (compressed overlay data) has no bytes of its own.
        const std::span<std::uint8_t> bytes = valueBytes(*element);
        if (bytes.empty())
            DCMDATA_WARN("Overlay data of group " << std::hex << element->getGTag()
                                                  << " is empty or cannot be read");
        const auto length = static_cast<unsigned int>(bytes.size());
        COverlay* overlay = process.m_overlays.at(process.m_currentOverlaySlot);
        overlay->initData(length, OVERLAY_READ_DATA);
        overlay->putData(bytes.data(), length);
    }
    parser->removeElement();
}

int CImageProcess::getAndRemoveOverlays() {
    const std::size_t bytes = std::min<std::size_t>(m_frameByteCount, m_frameBuffer.size());
    const int shift = m_highBit + 1 - m_bitsStored;
    if (m_bitsAllocated == 16) {
        auto* samples = reinterpret_cast<std::uint16_t*>(m_frameBuffer.data());
        takeOverlayBits(samples, bytes / 2);
        const auto mask =
            static_cast<std::uint16_t>(shiftedLeft(shiftedRight(0xFFFF, 16 - m_bitsStored), shift));
        if (m_pixelRepresentation == 1 && m_highBit < 15)
            keepSignedBits(samples, bytes / 2, mask, static_cast<std::uint16_t>(mask & (1U << m_highBit)));
        else
            keepBits(samples, bytes / 2, mask);
        return 0;
    }
    if (m_bitsAllocated != 8) return 1;
    std::uint8_t* samples = m_frameBuffer.data();
    takeOverlayBits(samples, bytes);
    keepBits(samples, bytes,
             static_cast<std::uint8_t>(shiftedLeft(shiftedRight(0xFF, 8 - m_bitsStored), shift)));
    return 0;
}

template <typename Sample>
void CImageProcess::takeOverlayBits(const Sample* samples, size_t count) {
    if (m_imageOverlayMask == 0) return;
    for (int slot = 0; slot < m_overlays.count(); ++slot) {
        COverlay* overlay = m_overlays.at(slot);
        if (overlay->takesSampleBits()) overlay->addSampleBits(samples, count);
    }
}

template void CImageProcess::takeOverlayBits(const std::uint16_t* samples, std::size_t count);
template void CImageProcess::takeOverlayBits(const std::uint8_t* samples, std::size_t count);
