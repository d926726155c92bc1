#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

/// Counts the sample values of one frame and finds display windows: for ten coverage levels (100, 95, ... 55
/// percent) the narrowest interval of values that holds the level's share, once of the counts compressed by a
/// logarithm (family A) and once of weights that favour frequent values (family B). One object serves frame
/// after frame and keeps its arrays; those of 16-bit samples the thread keeps for the next object.
class CHistogram {
public:
    CHistogram() = default;
    ~CHistogram();
    CHistogram(const CHistogram&) = delete;
    CHistogram& operator=(const CHistogram&) = delete;

    static constexpr int kLevelCount = 10;
    using Levels = std::array<int, kLevelCount>;

    /// Prepares for a frame of `pixelCount` pixels: 65536 bins for 2 bytes per sample, else 256, all zero.
    /// False when there is no memory.
    bool init(int bytesPerSample, bool isSigned, double base, double exponent, int pixelCount);

    /// Counts one stored sample (the bit pattern; a negative value v is the bin v + bins). Samples of one
    /// byte count below 256.
    void count(uint16_t sample, uint32_t times = 1) {
        m_counts[sample & m_indexMask] += times;
        m_rangeKnown = false;
    }
    void countWords(const uint16_t* samples, size_t count);
    void countBytes(const uint8_t* samples, size_t count);

    /// Finds the smallest and largest counted value. With nothing counted: 32768 and 32767 (signed, 2 bytes),
    /// 128 and 127 (signed, 1 byte), 0 and bins - 1 (unsigned).
    void calculateMinMax();

    /// Computes the windows; replaces the counts by the compressed histogram. With `percent` 0 for all ten
    /// levels, otherwise for that one level (entry 0).
    void analyze(int percent);

    /// The window search on `histogram`, indexed by sample bit pattern, whose entries sum up to `total`,
    /// which stays below 2^31.
    void analyze2(const unsigned int* histogram, unsigned int total, int percent, int* widths, int* centers);

    int bins() const { return m_bins; }
    int minimum() const { return m_minimum; }
    int maximum() const { return m_maximum; }
    const Levels& widthsA() const { return m_widthsA; }
    const Levels& centersA() const { return m_centersA; }
    const Levels& widthsB() const { return m_widthsB; }
    const Levels& centersB() const { return m_centersB; }
    const std::vector<uint32_t>& counts() const { return m_counts; }
    const std::vector<uint32_t>& weights() const { return m_weights; }

private:
    struct Totals {
        uint32_t compressed = 0;
        uint32_t weighted = 0;
    };

    void clearBins();
    Totals transform();

    std::vector<uint32_t> m_counts;
    std::vector<uint32_t> m_weights;
    std::vector<int32_t> m_sums;  ///< scratch: running sums in the order of the values
    bool m_rangeKnown = false;    ///< what is not 0 lies in minimum ... maximum
    int m_bytesPerSample = 0;
    int m_bins = 0;
    uint32_t m_indexMask = 0;
    bool m_signed = false;
    double m_base = 1.1;
    double m_exponent = 1.2;
    int m_pixelCount = 0;
    int m_minimum = 0;
    int m_maximum = 0;
    Levels m_widthsA{};
    Levels m_centersA{};
    Levels m_widthsB{};
    Levels m_centersB{};
};
