#include "keltlegacy/classcoder.h"

#include <bit>
#include <cstring>
#include <numeric>

#include "keltlegacy/golomb.h"

namespace keltlegacy {
namespace {

constexpr size_t kBlockSize = 64;

/// Bit `plane` of 64 magnitudes, the first one lowest.
uint64_t bitColumn(const uint32_t* magnitudes, int plane) {
    unsigned char bits[kBlockSize];
    for (size_t i = 0; i < kBlockSize; ++i)
        bits[i] = (magnitudes[i] >> plane) & 1;
    uint64_t column = 0;
    for (size_t i = 0; i < kBlockSize; i += 8) {
        uint64_t eight;
        std::memcpy(&eight, bits + i, sizeof eight);
        if constexpr (std::endian::native == std::endian::big) eight = __builtin_bswap64(eight);
        // The product moves the lowest bit of byte n to bit 56 + n, and no other bit there.
        column |= (eight * 0x0102040810204080u >> 56) << i;
    }
    return column;
}

/// Appends those bits of `bits` that `mask` selects, close together.
void appendSelected(uint64_t bits, uint64_t mask, BitStreamer& out) {
    if (mask == ~uint64_t{0}) {
        out.append(static_cast<uint32_t>(bits), 32);
        out.append(static_cast<uint32_t>(bits >> 32), 32);
        return;
    }
    uint64_t selected = 0;
    int count = 0;
    for (; mask != 0; mask &= mask - 1)
        selected |= (bits >> std::countr_zero(mask) & 1) << count++;
    const int low = count < 32 ? count : 32;
    out.append(static_cast<uint32_t>(selected), low);
    out.append(static_cast<uint32_t>(selected >> low), count - low);
}

/// Writes runs of coefficients that stay insignificant, in groups of 2^k.
class RunCoder {
public:
    RunCoder(int k, BitStreamer& out) : m_k(k), m_out(out) {}

    void extend(int count) { m_run += static_cast<uint64_t>(count); }
    void endWithSignificant(bool negative) {
        m_out.appendZeros(m_run >> m_k);
        const auto remainder = static_cast<uint32_t>(m_run & ((uint64_t{1} << m_k) - 1));
        m_out.append(1u | remainder << 1 | uint32_t{negative} << (m_k + 1), m_k + 2);
        m_run = 0;
    }
    void close() { m_out.appendZeros((m_run + (uint64_t{1} << m_k) - 1) >> m_k); }

private:
    int m_k;
    BitStreamer& m_out;
    uint64_t m_run = 0;
};

}  // namespace

ClassCoder::ClassCoder(std::span<const int16_t> coefficients) {
    load(coefficients);
}
ClassCoder::ClassCoder(std::span<const int32_t> coefficients) {
    load(coefficients);
}

template <class T>
void ClassCoder::load(std::span<const T> coefficients) {
    const size_t count = coefficients.size();
    const size_t blocks = (count + kBlockSize - 1) / kBlockSize;
    m_magnitudes.resize(blocks * kBlockSize);
    m_negative.resize(blocks);
    m_significant.resize(blocks);
    m_column.resize(blocks);
    m_candidates.assign(blocks, ~uint64_t{0});
    if (count % kBlockSize != 0) m_candidates.back() >>= kBlockSize - count % kBlockSize;

    for (size_t i = 0; i < count; ++i) {
        const int32_t value = coefficients[i];
        const auto magnitude = static_cast<uint32_t>(value < 0 ? -value : value);
        m_magnitudes[i] = magnitude;
        m_negative[i / kBlockSize] |= uint64_t{value < 0} << (i % kBlockSize);
        ++m_countByWidth[static_cast<size_t>(std::bit_width(magnitude))];
    }
}

int ClassCoder::topPlane() const {
    int plane = static_cast<int>(m_countByWidth.size()) - 2;
    while (plane >= 0 && m_countByWidth[static_cast<size_t>(plane) + 1] == 0)
        --plane;
    return plane;
}

void ClassCoder::appendPlane(int plane, BitStreamer& out) {
    extractColumns(plane);
    appendRefinement(out);
    appendSignificance(plane, out);
}

void ClassCoder::extractColumns(int plane) {
    for (size_t block = 0; block < m_column.size(); ++block)
        m_column[block] = bitColumn(m_magnitudes.data() + block * kBlockSize, plane);
}

void ClassCoder::appendRefinement(BitStreamer& out) const {
    for (size_t block = 0; block < m_column.size(); ++block)
        appendSelected(m_column[block], m_significant[block], out);
}

void ClassCoder::appendSignificance(int plane, BitStreamer& out) {
    const auto ownWidth = m_countByWidth.begin() + plane + 1;
    const uint64_t becoming = *ownWidth;
    const uint64_t candidates = std::accumulate(m_countByWidth.begin(), ownWidth + 1, uint64_t{0});
    const int k = golombParameter(becoming, candidates);
    out.append(static_cast<uint32_t>(k), kGolombParameterBits);

    RunCoder runs(k, out);
    for (size_t block = 0; block < m_column.size(); ++block) {
        uint64_t pending = m_candidates[block];
        const uint64_t found = m_column[block] & pending;
        for (uint64_t left = found; left != 0; left &= left - 1) {
            const int position = std::countr_zero(left);
            const uint64_t upToHere = (uint64_t{2} << position) - 1;
            runs.extend(std::popcount(pending & upToHere) - 1);
            runs.endWithSignificant((m_negative[block] >> position & 1) != 0);
            pending &= ~upToHere;
        }
        runs.extend(std::popcount(pending));
        m_candidates[block] &= ~found;
        m_significant[block] |= found;
    }
    runs.close();
}

}  // namespace keltlegacy
