#include "keltlegacy/classdecoder.h"

#include <algorithm>

#include "keltlegacy/golomb.h"

namespace keltlegacy {
namespace {

/// Half of plane `plane`'s weight: the middle of what the lower planes can add.
int32_t middle(int plane) {
    return plane > 0 ? int32_t{1} << (plane - 1) : 0;
}

/// Notes in a counter how far a reader got while this object lived.
class BitCounter {
public:
    BitCounter(const BitReader& reader, uint64_t& counter)
        : m_reader(reader), m_counter(counter), m_start(reader.position()) {}
    BitCounter(const BitCounter&) = delete;
    BitCounter& operator=(const BitCounter&) = delete;
    ~BitCounter() { m_counter = m_reader.position() - m_start; }

private:
    const BitReader& m_reader;
    uint64_t& m_counter;
    uint64_t m_start;
};

}  // namespace

void ClassDecoder::readPlane(int plane, BitReader& reader, PlaneRecord& record) {
    {
        const BitCounter counter(reader, record.refinementBits);
        readRefinement(plane, reader);
    }
    const BitCounter counter(reader, record.significanceBits);
    readSignificance(plane, reader, record);
}

void ClassDecoder::readRefinement(int plane, BitReader& reader) {
    if (m_insignificant == m_coefficients.size()) return;
    for (int32_t& value : m_coefficients) {
        if (value == 0) continue;
        const auto bit = static_cast<int32_t>(reader.read(1));
        // The bit of this plane is set so far, as the middle of the interval.
        const int32_t change = ((bit - 1) << plane) + middle(plane);
        value += value < 0 ? -change : change;
    }
}

void ClassDecoder::readSignificance(int plane, BitReader& reader, PlaneRecord& record) {
    const int k = static_cast<int>(reader.read(kGolombParameterBits));
    if (k == 1 || k > kLargestGolombParameter) throw DamagedStream();
    record.golombParameter = k;

    const uint64_t group = uint64_t{1} << k;
    uint64_t left = m_insignificant;
    size_t index = 0;
    while (left > 0) {
        if (reader.read(1) == 0) {
            const uint64_t run = std::min(group, left);
            left -= run;
            if (left > 0) index = skip(index, run);
            continue;
        }
        const uint64_t run = reader.read(k);
        const bool negative = reader.read(1) != 0;
        if (run >= left) throw DamagedStream();
        index = skip(index, run);
        const int32_t magnitude = (int32_t{1} << plane) + middle(plane);
        m_coefficients[index++] = negative ? -magnitude : magnitude;
        --m_insignificant;
        left -= run + 1;
    }
}

size_t ClassDecoder::skip(size_t index, uint64_t count) const {
    for (;; ++index) {
        if (m_coefficients[index] != 0) continue;
        if (count-- == 0) return index;
    }
}

}  // namespace keltlegacy
