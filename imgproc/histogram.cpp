#include "imgproc/histogram.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <span>

namespace {

constexpr double kLn30 = 3.4011973816621555;
constexpr double kLn1001 = 0.0009995003330834232;  // ln 1.001

/// Halves go up, and the sum itself may round: the windows are defined by this very arithmetic.
uint32_t rounded(double value) {
    // NOLINTNEXTLINE(bugprone-incorrect-roundings): see above
    return static_cast<uint32_t>(value + 0.5);
}

/// The count of a bin, compressed by a logarithm of base 1.001.
uint32_t compressedCount(uint32_t count) {
    return rounded((std::log(30.0 + count) - kLn30) / kLn1001);
}

/// Index of the first entry that is not 0, or of the end.
size_t firstNonZero(std::span<const uint32_t> bins) {
    size_t i = 0;
    for (; i + 8 <= bins.size(); i += 8) {
        uint32_t any = 0;
        for (size_t k = 0; k < 8; ++k)
            any |= bins[i + k];
        if (any != 0) break;
    }
    while (i < bins.size() && bins[i] == 0)
        ++i;
    return i;
}

/// Index behind the last entry that is not 0, or 0.
size_t endOfNonZero(std::span<const uint32_t> bins) {
    size_t end = bins.size();
    for (; end >= 8; end -= 8) {
        uint32_t any = 0;
        for (size_t k = 1; k <= 8; ++k)
            any |= bins[end - k];
        if (any != 0) break;
    }
    while (end > 0 && bins[end - 1] == 0)
        --end;
    return end;
}

/// The transformed values of one bin, per distinct count: in a frame of n pixels there are at most some
/// sqrt(2n) different counts, so each logarithm and power is computed once.
class TransformCache {
public:
    struct Entry {
        uint32_t count;
        uint32_t compressed;
        uint32_t weight;
    };

    TransformCache(double mean, double base, double exponent)
        : m_mean(mean),
          m_base(base),
          m_exponent(exponent),
          m_floor(std::pow(base, -std::pow(mean, exponent))) {
        for (uint32_t i = 0; i < kSlotCount; ++i)
            m_slots[i].count = ~i;  // in no bin's own slot
    }

    const Entry& of(uint32_t count) {
        Entry& slot = m_slots[count % kSlotCount];
        if (slot.count != count) slot = {count, compressedCount(count), weight(count)};
        return slot;
    }

private:
    uint32_t weight(uint32_t count) const {
        const double ratio = m_mean / (double{1} + count);
        return rounded(1000 * (std::pow(m_base, -std::pow(ratio, m_exponent)) - m_floor));
    }

    static constexpr uint32_t kSlotCount = 2048;
    double m_mean;
    double m_base;
    double m_exponent;
    double m_floor;
    std::array<Entry, kSlotCount> m_slots;
};

/// The narrowest window of `bins` that holds `target` of their sum, found with two ends that only move
/// forward.
struct Window {
    int64_t start;
    int64_t end;  ///< exclusive
};

Window narrowestWindow(std::span<const uint32_t> bins, int64_t total, int64_t target) {
    const auto size = static_cast<int64_t>(bins.size());
    Window best{0, size};
    int64_t bestCount = total;
    int64_t end = 0;
    int64_t count = 0;
    for (int64_t low = 0; low < size; ++low) {
        while (count < target && end < size)
            count += bins[end++];
        if (count < target) break;
        const int64_t width = end - low;
        const int64_t bestWidth = best.end - best.start;
        if (width < bestWidth || (width == bestWidth && count > bestCount)) {
            best = {low, end};
            bestCount = count;
        }
        count -= bins[low];
    }
    return best;
}

}  // namespace

bool CHistogram::init(int bytesPerSample, bool isSigned, double base, double exponent, int pixelCount) {
    const int bins = bytesPerSample == 2 ? 65536 : 256;
    try {
        if (bins != m_bins || m_counts.empty()) {
            m_bins = 0;
            m_counts.assign(bins, 0);
            m_weights.assign(bins, 0);
            m_bins = bins;
        } else {
            clearBins();
        }
    } catch (const std::bad_alloc&) {
        return false;
    }
    m_rangeKnown = false;
    m_indexMask = static_cast<uint32_t>(bins) - 1;
    m_bytesPerSample = bytesPerSample;
    m_signed = isSigned;
    m_base = base;
    m_exponent = exponent;
    m_pixelCount = pixelCount;
    for (Levels* levels : {&m_widthsA, &m_centersA, &m_widthsB, &m_centersB})
        levels->fill(0);
    return true;
}

/// Zeroes the bins; only the range that the last frame used when it is known.
void CHistogram::clearBins() {
    if (!m_rangeKnown) {
        std::fill(m_counts.begin(), m_counts.end(), 0);
        std::fill(m_weights.begin(), m_weights.end(), 0);
        return;
    }
    if (m_minimum > m_maximum) return;
    const auto clear = [this](int first, int last) {
        for (auto* bins : {&m_counts, &m_weights})
            std::fill(bins->begin() + first, bins->begin() + last + 1, 0);
    };
    if (m_minimum < 0) clear(m_minimum + m_bins, std::min(m_maximum, -1) + m_bins);
    if (m_maximum >= 0) clear(std::max(m_minimum, 0), m_maximum);
}

void CHistogram::countWords(const uint16_t* samples, size_t count) {
    m_rangeKnown = false;
    uint32_t* counts = m_counts.data();
    // The weights are not in use yet: as a second table for every other sample they keep runs of one value
    // from waiting for their own last increment. Adding them up pays for large frames only.
    const bool twoTables = count >= m_counts.size();
    uint32_t* others = twoTables ? m_weights.data() : counts;
    size_t i = 0;
    for (; i + 2 <= count; i += 2) {
        ++counts[samples[i] & m_indexMask];
        ++others[samples[i + 1] & m_indexMask];
    }
    if (i < count) ++counts[samples[i] & m_indexMask];
    if (!twoTables) return;
    for (size_t bin = 0; bin < m_counts.size(); ++bin)
        counts[bin] += others[bin];
    std::fill(m_weights.begin(), m_weights.end(), 0);
}

void CHistogram::countBytes(const uint8_t* samples, size_t count) {
    m_rangeKnown = false;
    // Four tables, so that runs of one value do not wait for their own last increment.
    std::array<std::array<uint32_t, 256>, 4> tables{};
    size_t i = 0;
    for (; i + 4 <= count; i += 4)
        for (size_t k = 0; k < 4; ++k)
            ++tables[k][samples[i + k]];
    for (; i < count; ++i)
        ++tables[0][samples[i]];
    for (size_t value = 0; value < 256; ++value)
        for (const auto& table : tables)
            m_counts[value] += table[value];
}

void CHistogram::calculateMinMax() {
    const std::span<const uint32_t> bins(m_counts);
    const size_t half = bins.size() / 2;
    const int middle = static_cast<int>(half);
    if (!m_signed) {
        const size_t end = endOfNonZero(bins);
        m_minimum = end == 0 ? 0 : static_cast<int>(firstNonZero(bins));
        m_maximum = end == 0 ? m_bins - 1 : static_cast<int>(end) - 1;
    } else {
        // Negative values lie in the upper half.
        const auto negative = bins.subspan(half);
        const auto positive = bins.first(half);
        const size_t firstNegative = firstNonZero(negative);
        const size_t endNegative = endOfNonZero(negative);
        const size_t endPositive = endOfNonZero(positive);
        m_minimum = static_cast<int>(firstNegative) - middle;
        if (endNegative == 0) m_minimum = static_cast<int>(firstNonZero(positive));
        m_maximum = static_cast<int>(endPositive) - 1;
        if (endPositive == 0) m_maximum = static_cast<int>(endNegative) - middle - 1;
        if (endPositive == 0 && endNegative == 0) {
            m_minimum = middle;
            m_maximum = middle - 1;
        }
    }
    m_rangeKnown = true;
}

CHistogram::Totals CHistogram::transform() {
    const double mean = m_pixelCount / (double{0} + m_maximum - m_minimum + 1);
    TransformCache cache(mean, m_base, m_exponent);
    Totals totals;
    for (int value = m_minimum; value <= m_maximum; ++value) {
        const size_t bin = static_cast<uint32_t>(value) & m_indexMask;
        const auto& entry = cache.of(m_counts[bin]);
        m_counts[bin] = entry.compressed;
        m_weights[bin] = entry.weight;
        totals.compressed += entry.compressed;
        totals.weighted += entry.weight;
    }
    return totals;
}

void CHistogram::analyze(int percent) {
    calculateMinMax();
    const Totals totals = transform();
    analyze2(m_counts.data(), totals.compressed, percent, m_widthsA.data(), m_centersA.data());
    analyze2(m_weights.data(), totals.weighted, percent, m_widthsB.data(), m_centersB.data());
}

void CHistogram::analyze2(unsigned int* histogram, unsigned int total, int percent, int* widths,
                          int* centers) {
    const int64_t size = std::max<int64_t>(0, int64_t{m_maximum} + 1 - m_minimum);
    std::span<const uint32_t> bins(histogram + std::max(m_minimum, 0), static_cast<size_t>(size));
    if (m_minimum < 0) {
        m_inValueOrder.resize(static_cast<size_t>(size));
        for (int64_t i = 0; i < size; ++i)
            m_inValueOrder[i] = histogram[static_cast<uint32_t>(m_minimum + i) & m_indexMask];
        bins = m_inValueOrder;
    }
    const int levels = percent != 0 ? 1 : kLevelCount;
    for (int level = 0; level < levels; ++level) {
        const int64_t share = percent != 0 ? percent : 100 - 5 * level;
        Window window{0, size};
        if (total != 0) window = narrowestWindow(bins, total, (share * total + 50) / 100);
        const int64_t start = window.start + m_minimum;
        const int64_t end = window.end + m_minimum;
        widths[level] = static_cast<int>(end - start);
        centers[level] = static_cast<int>((end + start) / 2);
    }
}
