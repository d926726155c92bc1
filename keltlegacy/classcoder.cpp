#include "keltlegacy/classcoder.h"

#include <algorithm>
#include <bit>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "keltlegacy/golomb.h"

namespace keltlegacy {
namespace {

constexpr size_t kBlockSize = 64;

#ifdef __SSE2__
/// Bit `bit` of 64 bytes, the first one lowest.
uint64_t bitColumn(const unsigned char* bytes, int bit) {
    const __m128i toHighest = _mm_cvtsi32_si128(7 - bit);
    uint64_t column = 0;
    for (size_t i = 0; i < kBlockSize; i += 16) {
        const __m128i sixteen = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + i));
        const int highest = _mm_movemask_epi8(_mm_sll_epi16(sixteen, toHighest));
        column |= static_cast<uint64_t>(highest) << i;
    }
    return column;
}
#else
uint64_t bitColumn(const unsigned char* bytes, int bit) {
    uint64_t column = 0;
    for (size_t i = 0; i < kBlockSize; i += 8) {
        uint64_t eight;
        std::memcpy(&eight, bytes + i, sizeof eight);
        if constexpr (std::endian::native == std::endian::big) eight = __builtin_bswap64(eight);
        // The product moves the lowest bit of byte n to bit 56 + n, and no other bit there.
        column |= ((eight >> bit & 0x0101010101010101u) * 0x0102040810204080u >> 56) << i;
    }
    return column;
}
#endif

/// The number of ones; the compiler's own is a call where it may not count on the processor's instruction.
int ones(uint64_t bits) {
    bits -= bits >> 1 & 0x5555555555555555u;
    bits = (bits & 0x3333333333333333u) + (bits >> 2 & 0x3333333333333333u);
    bits = (bits + (bits >> 4)) & 0x0F0F0F0F0F0F0F0Fu;
    return static_cast<int>(bits * 0x0101010101010101u >> 56);
}

uint32_t magnitudeOf(int32_t value) {
    return static_cast<uint32_t>(value < 0 ? -value : value);
}

/// The lowest bytes of what `part` makes of the values.
template <class T, class Part>
void takeBytes(std::span<const T> values, unsigned char* __restrict bytes, Part part) {
    for (size_t i = 0; i < values.size(); ++i)
        bytes[i] = static_cast<unsigned char>(part(values[i]));
}

/// Bit `bit` of blocks of bytes, one column each.
void takeColumns(const unsigned char* bytes, int bit, std::span<uint64_t> columns) {
    for (uint64_t& column : columns) {
        column = bitColumn(bytes, bit);
        bytes += kBlockSize;
    }
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
        const uint64_t groups = m_run >> m_k;
        const auto remainder = static_cast<uint32_t>(m_run & ((uint64_t{1} << m_k) - 1));
        const uint32_t end = 1u | remainder << 1 | uint32_t{negative} << (m_k + 1);
        const int length = m_k + 2;
        m_run = 0;
        if (groups + static_cast<uint64_t>(length) <= 32) {
            m_out.append(end << groups, static_cast<int>(groups) + length);
        } else {
            m_out.appendZeros(groups);
            m_out.append(end, length);
        }
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
    uint32_t used = 0;
    for (const T value : coefficients)
        used |= magnitudeOf(value);
    m_planes = static_cast<int>(std::bit_width(used));
    m_candidateCount = count;
    m_column.resize(blocks);
    m_negative.resize(blocks);
    m_significant.resize(blocks);
    m_candidates.assign(blocks, ~uint64_t{0});
    if (count % kBlockSize != 0) m_candidates.back() >>= kBlockSize - count % kBlockSize;

    const size_t stride = blocks * kBlockSize;
    m_bytes.resize(std::max<size_t>((static_cast<size_t>(m_planes) + 7) / 8, 1) * stride);
    takeBytes(coefficients, m_bytes.data(), [](T value) { return value < 0 ? 1U : 0U; });
    takeColumns(m_bytes.data(), 0, m_negative);
    for (int plane = 0; plane < m_planes; plane += 8)
        takeBytes(coefficients, m_bytes.data() + static_cast<size_t>(plane / 8) * stride,
                  [plane](T value) { return magnitudeOf(value) >> plane; });
}

/// Only now, because the output is mostly full long before the lowest plane's turn.
void ClassCoder::takePlane(int plane) {
    if (plane >= m_planes) return std::fill(m_column.begin(), m_column.end(), 0);
    const size_t stride = m_column.size() * kBlockSize;
    takeColumns(m_bytes.data() + static_cast<size_t>(plane / 8) * stride, plane % 8, m_column);
}

void ClassCoder::appendPlane(int plane, BitStreamer& out) {
    takePlane(plane);
    appendRefinement(out);
    appendSignificance(out);
}

void ClassCoder::appendRefinement(BitStreamer& out) const {
    for (size_t block = 0; block < m_column.size(); ++block)
        if (m_significant[block] != 0) appendSelected(m_column[block], m_significant[block], out);
}

void ClassCoder::appendSignificance(BitStreamer& out) {
    uint64_t becoming = 0;
    for (size_t block = 0; block < m_column.size(); ++block)
        if (m_column[block] &= m_candidates[block]; m_column[block] != 0)
            becoming += static_cast<uint64_t>(ones(m_column[block]));
    const int k = golombParameter(becoming, m_candidateCount);
    m_candidateCount -= becoming;
    out.append(static_cast<uint32_t>(k), kGolombParameterBits);

    RunCoder runs(k, out);
    for (size_t block = 0; block < m_column.size(); ++block) {
        const uint64_t found = m_column[block];
        uint64_t pending = m_candidates[block];
        for (uint64_t left = found; left != 0; left &= left - 1) {
            const int position = std::countr_zero(left);
            const uint64_t upToHere = (uint64_t{2} << position) - 1;
            runs.extend(ones(pending & upToHere) - 1);
            runs.endWithSignificant((m_negative[block] >> position & 1) != 0);
            pending &= ~upToHere;
        }
        if (pending != 0) runs.extend(ones(pending));
        m_candidates[block] &= ~found;
        m_significant[block] |= found;
    }
    runs.close();
}

}  // namespace keltlegacy
