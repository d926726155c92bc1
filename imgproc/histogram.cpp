#include "imgproc/histogram.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <new>
#include <span>
#include <utility>

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

constexpr int kWordBins = 65536;

/// The bins of 16-bit samples that a thread keeps for its next histogram, all 0: half a megabyte, of which a
/// frame uses a small part.
struct Bins {
    std::vector<uint32_t> counts;
    std::vector<uint32_t> weights;
};
thread_local Bins t_spare;

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

/// Values from `start` to before `end`.
struct Window {
    int64_t start;
    int64_t end;
};

/// The narrowest window that holds `target` (above 0) of the counts whose running sums are `sums`: 0, one for
/// each count, and the last once more. Of equally narrow ones it is the one that holds most, of those the
/// first. All of them for a target that they do not reach. Looks at every start, but at whole blocks of them
/// at a time: only where a block may hold a narrower or a fuller window than the best so far are its starts
/// looked at.
class WindowSearch {
public:
    WindowSearch(std::span<const int32_t> sums, int32_t target)
        : m_sums(sums.data()), m_last(static_cast<int64_t>(sums.size()) - 2), m_target(target) {}

    /// `hint` is a start near which a narrow window may be.
    Window find(int64_t hint) {
        if (m_sums[m_last] < m_target) return {0, m_last};
        m_width = m_last;
        m_count = m_target - 1;
        probe(hint);
        constexpr int64_t kProbes = 64;
        for (int64_t i = 0; i < kProbes; ++i)
            probe(i * m_last / kProbes);
        for (int64_t low = 0; low + m_width <= m_last + 1; low += kBlock) {
            const int64_t end = std::min(low + kBlock, m_last - m_width + 2);
            if (mayImprove(low, end)) improve(low);
        }
        return {m_start, m_start + m_width};
    }

private:
    static constexpr int64_t kBlock = 64;

    int32_t held(int64_t start, int64_t width) const { return m_sums[start + width] - m_sums[start]; }

    /// Some window has this width: the search needs no wider ones.
    void probe(int64_t start) {
        const int32_t* begin = m_sums + start;
        const int32_t* reach = begin + std::min(m_width, m_last - start) + 1;
        const int32_t* found = std::lower_bound(begin, reach, *begin + m_target);
        if (found != reach) m_width = found - begin;
    }

    /// Whether a window that begins from `low` to before `end` is better than the best so far.
    bool mayImprove(int64_t low, int64_t end) const {
        // No window of the block holds more than all of them together.
        const int32_t most = m_sums[end - 1 + m_width] - m_sums[low];
        if (most < m_target) return false;
        if (most <= m_count && m_sums[end - 2 + m_width] - m_sums[low] < m_target) return false;
        if (end - low < kBlock) return true;
        const int32_t* starts = m_sums + low;
        const int32_t* ends = starts + m_width;
        int32_t any = 0;
        for (int64_t i = 0; i < kBlock; ++i)
            any |= static_cast<int32_t>(ends[i] - starts[i] > m_count) |
                   static_cast<int32_t>(ends[i - 1] - starts[i] >= m_target);
        return any != 0;
    }

    void improve(int64_t low) {
        for (const int64_t end = low + kBlock; low < end && low + m_width <= m_last + 1; ++low) {
            if (held(low, m_width - 1) >= m_target) {
                do
                    --m_width;
                while (held(low, m_width - 1) >= m_target);
            } else if (held(low, m_width) <= m_count) {
                continue;
            }
            m_count = held(low, m_width);
            m_start = low;
        }
    }

    const int32_t* m_sums;
    int64_t
        m_last;  ///< number of the counts; the sum behind is that of a start whose narrower window just fits
    int32_t m_target;
    int64_t m_width = 0;  ///< of the best window so far, or of one that is known to be there
    int32_t m_count = 0;  ///< what a window of this width has to exceed
    int64_t m_start = 0;
};

}  // namespace

CHistogram::~CHistogram() {
    if (m_bins != kWordBins || !m_rangeKnown) return;
    clearBins();
    t_spare = {std::move(m_counts), std::move(m_weights)};
}

bool CHistogram::init(int bytesPerSample, bool isSigned, double base, double exponent, int pixelCount) {
    const int bins = bytesPerSample == 2 ? kWordBins : 256;
    try {
        if (bins == kWordBins && m_counts.empty() && !t_spare.counts.empty()) {
            m_counts.swap(t_spare.counts);
            m_weights.swap(t_spare.weights);
            m_bins = bins;
            m_rangeKnown = true;
            m_minimum = m_maximum = 0;
        }
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
    const uint32_t mask = m_indexMask;
    // A run of one value would wait for its own last increment: eight samples of it are counted at once.
    size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        uint64_t four, next;
        std::memcpy(&four, samples + i, sizeof four);
        std::memcpy(&next, samples + i + 4, sizeof next);
        if (four == next && four == std::rotl(four, 16)) {
            counts[four & mask] += 8;
            continue;
        }
        for (int shift = 0; shift < 64; shift += 16) {
            ++counts[four >> shift & mask & 0xFFFF];
            ++counts[next >> shift & mask & 0xFFFF];
        }
    }
    for (; i < count; ++i)
        ++counts[samples[i] & mask];
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

void CHistogram::analyze2(const unsigned int* histogram, unsigned int total, int percent, int* widths,
                          int* centers) {
    const int64_t size = std::max<int64_t>(0, int64_t{m_maximum} + 1 - m_minimum);
    m_sums.resize(static_cast<size_t>(size) + 2);
    int32_t sum = m_sums[0] = 0;
    for (int64_t i = 0; i < size; ++i)
        m_sums[i + 1] = sum +=
            static_cast<int32_t>(histogram[static_cast<uint32_t>(m_minimum + i) & m_indexMask]);
    m_sums.back() = sum;
    const int levels = percent != 0 ? 1 : kLevelCount;
    Window window{0, size};
    for (int level = 0; level < levels; ++level) {
        const int64_t share = percent != 0 ? percent : 100 - 5 * level;
        const int64_t target = std::min<int64_t>((share * total + 50) / 100, INT32_MAX);
        if (target > 0)
            window = WindowSearch(m_sums, static_cast<int32_t>(target)).find(window.start);
        else
            window = {0, total == 0 ? size : 0};
        const int64_t start = window.start + m_minimum;
        const int64_t end = window.end + m_minimum;
        widths[level] = static_cast<int>(end - start);
        centers[level] = static_cast<int>((end + start) / 2);
    }
}
