#include "keltlegacy/classdecoder.h"

#include <algorithm>

#include "keltlegacy/golomb.h"

namespace keltlegacy {
namespace {

/// Half of plane `plane`'s weight: the middle of what the lower planes can add.
int32_t middle(int plane) {
    return plane > 0 ? int32_t{1} << (plane - 1) : 0;
}

}  // namespace

PlaneEnd ClassDecoder::readPlane(int plane, BitReader& reader, PlaneRecord& record) {
    const uint64_t start = reader.position();
    const bool refined = readRefinement(plane, reader);
    record.refinementBits = reader.position() - start;
    if (!refined) return PlaneEnd::CutOff;
    const PlaneEnd end = readSignificance(plane, reader, record);
    record.significanceBits = reader.position() - start - record.refinementBits;
    return end;
}

/// False when the stream ends before all were refined.
bool ClassDecoder::readRefinement(int plane, BitReader& reader) {
    if (m_insignificant == m_coefficients.size()) return true;
    for (int32_t& value : m_coefficients) {
        if (value == 0) continue;
        const auto bit = static_cast<int32_t>(reader.read(1));
        if (reader.ended()) return false;
        // The bit of this plane is set so far, as the middle of the interval.
        const int32_t change = ((bit - 1) << plane) + middle(plane);
        value += value < 0 ? -change : change;
    }
    return true;
}

PlaneEnd ClassDecoder::readSignificance(int plane, BitReader& reader, PlaneRecord& record) {
    const int k = static_cast<int>(reader.read(kGolombParameterBits));
    if (reader.ended()) return PlaneEnd::CutOff;
    if (k == 1 || k > kLargestGolombParameter) return PlaneEnd::Damaged;
    record.golombParameter = k;

    const uint64_t group = uint64_t{1} << k;
    uint64_t left = m_insignificant;
    size_t index = 0;
    while (left > 0) {
        const bool isRun = reader.read(1) != 0;
        if (reader.ended()) return PlaneEnd::CutOff;
        if (!isRun) {
            const uint64_t run = std::min(group, left);
            left -= run;
            if (left > 0) index = skip(index, run);
            continue;
        }
        const uint64_t run = reader.read(k);
        const bool negative = reader.read(1) != 0;
        if (reader.ended()) return PlaneEnd::CutOff;
        if (run >= left) return PlaneEnd::Damaged;
        index = skip(index, run);
        const int32_t magnitude = (int32_t{1} << plane) + middle(plane);
        m_coefficients[index++] = negative ? -magnitude : magnitude;
        --m_insignificant;
        left -= run + 1;
    }
    return PlaneEnd::Whole;
}

size_t ClassDecoder::skip(size_t index, uint64_t count) const {
    for (;; ++index) {
        if (m_coefficients[index] != 0) continue;
        if (count-- == 0) return index;
    }
}

}  // namespace keltlegacy
