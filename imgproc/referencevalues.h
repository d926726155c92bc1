#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcitem.h>

#include <cstdint>
#include <deque>
#include <vector>

/// What the frames of an object taught, a value for each frame (a window ten times, for each level of
/// coverage) in the order of the frames, on its way into the private block.
class ReferenceValues {
public:
    void addMinimum(int32_t value) { m_minima.push_back(value); }
    void addMaximum(int32_t value) { m_maxima.push_back(value); }
    void addActualBits(uint16_t bits) { m_actualBits.push_back(bits); }
    /// The window of one level by both families of the histogram.
    void addWindowWidth(int32_t familyA, int32_t familyB) { m_widths.add(familyA, familyB); }
    void addWindowCenter(int32_t familyA, int32_t familyB) { m_centers.add(familyA, familyB); }

    /// Writes value ranges, bits, windows and the numbers 1 to `images` into the private block of `dataset`.
    /// `numberOfFrames` frames of ten windows each give one mean window for each level.
    void store(DcmItem& dataset, uint16_t numberOfFrames, int images) const;

private:
    /// Grows without taking more than it needs: of all that is kept for each frame this is the most.
    using Numbers = std::deque<int32_t>;
    struct Families {
        Numbers a;
        Numbers b;
        void add(int32_t familyA, int32_t familyB) {
            a.push_back(familyA);
            b.push_back(familyB);
        }
    };

    std::vector<uint16_t> m_actualBits;
    Numbers m_minima;
    Numbers m_maxima;
    Families m_widths;
    Families m_centers;
};
