#include "imgproc/palettetables.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <span>

#include "imgproc/elementvalues.h"
#include "imgproc/segmentedpalette.h"

namespace {

constexpr const char* kChannelNames[] = {"red", "green", "blue"};

}  // namespace

void PaletteTables::readDescriptor(DcmElement& element, int channel) {
    if (element.getLength() == 0 || element.getVM() != 3) return;
    Uint16 count = 0;
    Uint16 bits = 0;
    if (element.ident() == EVR_SS) {
        Sint16 value = 0;
        if (element.getSint16(value, 0).good()) count = static_cast<Uint16>(value);
        if (element.getSint16(value, 2).good()) bits = static_cast<Uint16>(value);
    } else {
        element.getUint16(count, 0);
        element.getUint16(bits, 2);
    }
    m_counts[channel] = count;
    m_bits[channel] = bits;
}

void PaletteTables::readData(DcmElement& element, int channel) {
    if (element.getLength() == 0) return;
    std::vector<uint16_t>& table = m_tables[channel];
    table.assign(entries(channel), 0);
    const std::span<const uint8_t> bytes = valueBytes(element);
    if (m_bits[channel] == 8) {
        const size_t count = std::min(table.size(), bytes.size());
        for (size_t i = 0; i < count; ++i)
            table[i] = static_cast<uint16_t>(bytes[i] << 8);
    } else if (m_bits[channel] == 16) {
        const size_t count = std::min(table.size(), bytes.size() / 2);
        for (size_t i = 0; i < count; ++i)
            table[i] = static_cast<uint16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
    } else {
        DCMDATA_WARN("The " << kChannelNames[channel] << " palette has entries of " << m_bits[channel]
                            << " bits, it is taken as black");
    }
}

void PaletteTables::expandSegments(DcmItem& dataset, int channel) {
    static const DcmTagKey segmentedTables[] = {DCM_SegmentedRedPaletteColorLookupTableData,
                                                DCM_SegmentedGreenPaletteColorLookupTableData,
                                                DCM_SegmentedBluePaletteColorLookupTableData};
    DcmElement* element = nullptr;
    if (dataset.findAndGetElement(segmentedTables[channel], element).bad()) return;
    const int bits = m_bits[channel];
    std::vector<uint16_t> table = expandSegmentedPalette(valueBytes(*element), bits, entries(channel));
    if (table.empty()) return;
    if (table.size() < entries(channel))
        DCMDATA_WARN("The segmented " << kChannelNames[channel] << " palette has " << table.size() << " of "
                                      << entries(channel) << " entries");
    if (bits == 8)
        for (uint16_t& entry : table)
            entry = static_cast<uint16_t>(entry << 8);
    table.resize(entries(channel), 0);
    m_tables[channel] = std::move(table);
}

const char* PaletteTables::complete(DcmItem& dataset) {
    for (int channel = 0; channel < 3; ++channel) {
        if (m_tables[channel].empty()) expandSegments(dataset, channel);
        if (m_tables[channel].empty()) return kChannelNames[channel];
    }
    return nullptr;
}
