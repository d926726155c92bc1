#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "keltlegacy/bitstreamer.h"

namespace keltlegacy {

/// Codes the coefficients of one level class of one component, bit plane by bit plane from the top, without
/// touching a coefficient singly unless it becomes significant: 64 of them are handled as one word of masks.
class ClassCoder {
public:
    explicit ClassCoder(std::span<const int16_t> coefficients);
    explicit ClassCoder(std::span<const int32_t> coefficients);

    /// The highest plane in which a coefficient is significant; -1 when all are 0.
    int topPlane() const;

    /// Appends the streams of the next plane: the refinement bits of the coefficients that are significant
    /// above it, then the run-length coded positions and signs of those that become significant in it. To be
    /// called for every plane from one at or above `topPlane` down, without a gap.
    void appendPlane(int plane, BitStreamer& out);

private:
    template <class T>
    void load(std::span<const T> coefficients);
    void extractColumns(int plane);
    void appendRefinement(BitStreamer& out) const;
    void appendSignificance(int plane, BitStreamer& out);

    std::vector<uint32_t> m_magnitudes;         ///< Filled up with zeros to whole blocks of 64.
    std::vector<uint64_t> m_negative;           ///< One bit a coefficient.
    std::vector<uint64_t> m_candidates;         ///< Not significant above the current plane; no fill-up bits.
    std::vector<uint64_t> m_significant;        ///< Significant above the current plane.
    std::vector<uint64_t> m_column;             ///< The magnitudes' bits of the current plane.
    std::array<uint64_t, 33> m_countByWidth{};  ///< Coefficients by the bit width of their magnitude.
};

}  // namespace keltlegacy
