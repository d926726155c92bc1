#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "keltlegacy/bitreader.h"
#include "keltlegacy/decoder.h"

namespace keltlegacy {

/// How the reading of a plane ended.
enum class PlaneEnd {
    Whole,
    CutOff,   ///< The stream ends before the plane does.
    Damaged,  ///< The stream says what no encoder writes.
};

/// The coefficients of one level class of one component while their bit planes arrive. At any time they are
/// the best guess from what was read: bits that are still unknown put the magnitude into the middle of its
/// interval.
class ClassDecoder {
public:
    explicit ClassDecoder(size_t count) : m_coefficients(count), m_insignificant(count) {}

    /// Reads both streams of a plane (at most 30); planes come in falling order. The record receives what was
    /// read, also of a plane that does not end well.
    PlaneEnd readPlane(int plane, BitReader& reader, PlaneRecord& record);

    std::vector<int32_t> takeCoefficients() { return std::move(m_coefficients); }

private:
    bool readRefinement(int plane, BitReader& reader);
    PlaneEnd readSignificance(int plane, BitReader& reader, PlaneRecord& record);
    /// The index of the insignificant coefficient that follows `count` others from `index` on.
    size_t skip(size_t index, uint64_t count) const;

    std::vector<int32_t> m_coefficients;  ///< 0 while insignificant.
    uint64_t m_insignificant;             ///< How many are.
};

}  // namespace keltlegacy
