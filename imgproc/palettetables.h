#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcelem.h>
#include <dcmtk/dcmdata/dcitem.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

/// The lookup tables of a PALETTE COLOR object: 16-bit entries, of which the high byte is used. Channels are
/// 0 red, 1 green, 2 blue.
class PaletteTables {
public:
    /// Number of entries and their bits, (0028,1101) to (0028,1103). Anything but three values changes
    /// nothing.
    void readDescriptor(DcmElement& element, int channel);

    /// The entries, (0028,1201) to (0028,1203), as the descriptor read before says; what the data do not hold
    /// is black. An empty element changes nothing.
    void readData(DcmElement& element, int channel);

    /// Fills channels without plain data from the data set's segmented ones, (0028,1221) to (0028,1223). The
    /// name of the first channel for which there is nothing to be had, null when all are there.
    const char* complete(DcmItem& dataset);

    /// What a sample shows: the high byte of its entry, beyond the last entry that of the last.
    uint8_t at(int channel, size_t sample) const {
        const std::vector<uint16_t>& table = m_tables[channel];
        return table.empty() ? 0 : static_cast<uint8_t>(table[std::min(sample, table.size() - 1)] >> 8);
    }

private:
    size_t entries(int channel) const { return m_counts[channel] == 0 ? 65536 : m_counts[channel]; }
    void expandSegments(DcmItem& dataset, int channel);

    std::array<std::vector<uint16_t>, 3> m_tables;
    std::array<uint16_t, 3> m_counts{};  ///< 0 stands for 65536
    std::array<uint16_t, 3> m_bits{};    ///< of an entry
};
