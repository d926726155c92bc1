#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dctypes.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "imgproc/imageprocess.h"
#include "imgproc/segmentedpalette.h"
#include "imgproc/valuebytes.h"

// Palette colour lookup tables: 16-bit entries, of which the high byte is used.

namespace {

constexpr const char* s_channelNames[] = {"red", "green", "blue"};

CImageProcess& processOf(IDicomTagParser2* parser) {
    return *static_cast<CImageProcess*>(parser);
}

std::size_t entriesOf(std::uint16_t count) {
    return count == 0 ? 65536 : count;
}

}  // namespace

void CImageProcess::readPaletteDesc(DcmElement* element, int channel) {
    if (element == nullptr || element->getLength() == 0 || element->getVM() != 3) return;
    Uint16 count = 0;
    Uint16 bits = 0;
    if (element->ident() == EVR_SS) {
        Sint16 value = 0;
        if (element->getSint16(value, 0).good()) count = static_cast<Uint16>(value);
        if (element->getSint16(value, 2).good()) bits = static_cast<Uint16>(value);
    } else {
        element->getUint16(count, 0);
        element->getUint16(bits, 2);
    }
    m_paletteEntryCounts[channel] = count;
    m_paletteEntryBits[channel] = bits;
}

void CImageProcess::readPaletteData(DcmElement* element, int channel) {
    if (element == nullptr || element->getLength() == 0) return;
    std::vector<std::uint16_t>& table = m_paletteTables[channel];
    table.assign(entriesOf(m_paletteEntryCounts[channel]), 0);
    const std::span<const std::uint8_t> bytes = valueBytes(*element);
    if (m_paletteEntryBits[channel] == 8) {
        const std::size_t count = std::min(table.size(), bytes.size());
        for (std::size_t i = 0; i < count; ++i)
            table[i] = static_cast<std::uint16_t>(bytes[i] << 8);
    } else if (m_paletteEntryBits[channel] == 16) {
        const std::size_t count = std::min(table.size(), bytes.size() / 2);
        for (std::size_t i = 0; i < count; ++i)
            table[i] = static_cast<std::uint16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
    } else {
        DCMDATA_WARN("The " << s_channelNames[channel] << " palette has entries of "
                            << m_paletteEntryBits[channel] << " bits, it is taken as black");
    }
}

void CImageProcess::expandPalette(int channel) {
    static const DcmTagKey segmentedTables[] = {DCM_SegmentedRedPaletteColorLookupTableData,
                                                DCM_SegmentedGreenPaletteColorLookupTableData,
                                                DCM_SegmentedBluePaletteColorLookupTableData};
    DcmElement* element = nullptr;
    if (m_dataset->findAndGetElement(segmentedTables[channel], element).bad()) return;
    const int bits = m_paletteEntryBits[channel];
    const std::size_t entries = entriesOf(m_paletteEntryCounts[channel]);
    std::vector<std::uint16_t> table = expandSegmentedPalette(valueBytes(*element), bits, entries);
    if (table.empty()) return;
    if (table.size() < entries)
        DCMDATA_WARN("The segmented " << s_channelNames[channel] << " palette has " << table.size() << " of "
                                      << entries << " entries");
    if (bits == 8)
        for (std::uint16_t& entry : table)
            entry = static_cast<std::uint16_t>(entry << 8);
    table.resize(entries, 0);
    m_paletteTables[channel] = std::move(table);
}

bool CImageProcess::preparePalettes() {
    for (int channel = 0; channel < 3; ++channel) {
        if (m_paletteTables[channel].empty()) expandPalette(channel);
        if (!m_paletteTables[channel].empty()) continue;
        reportFailure(std::string("the object is PALETTE COLOR but has no usable ") +
                      s_channelNames[channel] + " palette");
        return false;
    }
    return true;
}

void CImageProcess::fTag2DCM_RedPaletteColorLookupTableDescriptor(IDicomTagParser2* parser) {
    processOf(parser).readPaletteDesc(processOf(parser).currentElement(), 0);
}

void CImageProcess::fTag2DCM_GreenPaletteColorLookupTableDescriptor(IDicomTagParser2* parser) {
    processOf(parser).readPaletteDesc(processOf(parser).currentElement(), 1);
}

void CImageProcess::fTag2DCM_BluePaletteColorLookupTableDescriptor(IDicomTagParser2* parser) {
    processOf(parser).readPaletteDesc(processOf(parser).currentElement(), 2);
}

void CImageProcess::fTag2DCM_RedPaletteColorLookupTableData(IDicomTagParser2* parser) {
    processOf(parser).readPaletteData(processOf(parser).currentElement(), 0);
}

void CImageProcess::fTag2DCM_GreenPaletteColorLookupTableData(IDicomTagParser2* parser) {
    processOf(parser).readPaletteData(processOf(parser).currentElement(), 1);
}

void CImageProcess::fTag2DCM_BluePaletteColorLookupTableData(IDicomTagParser2* parser) {
    processOf(parser).readPaletteData(processOf(parser).currentElement(), 2);
}
