#pragma once

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
    int topPlane() const { return m_planes - 1; }

    /// Appends the streams of the next plane: the refinement bits of the coefficients that are significant
    /// above it, then the run-length coded positions and signs of those that become significant in it. To be
    /// called for every plane from one at or above `topPlane` down, without a gap.
    void appendPlane(int plane, BitStreamer& out);

private:
    template <class T>
    void load(std::span<const T> coefficients);
    void takePlane(int plane);
    void appendRefinement(BitStreamer& out) const;
    void appendSignificance(BitStreamer& out);

    int m_planes = 0;                     ///< In use, from the lowest one up.
    std::vector<unsigned char> m_bytes;   ///< The magnitudes' lowest bytes, then the next ones, in blocks.
    std::vector<uint64_t> m_column;       ///< The magnitudes' bits of the current plane.
    std::vector<uint64_t> m_negative;     ///< One bit a coefficient.
    std::vector<uint64_t> m_candidates;   ///< Not significant above the current plane; no fill-up bits.
    std::vector<uint64_t> m_significant;  ///< Significant above the current plane.
    uint64_t m_candidateCount = 0;        ///< Ones in m_candidates.
};

}  // namespace keltlegacy
