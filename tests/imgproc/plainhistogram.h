#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <vector>

/// The histogram's windows computed the plain way, one step after the other and without any cleverness: what
/// the real one is compared with.
class PlainHistogram {
public:
    using Levels = std::array<int, 10>;

    PlainHistogram(bool twoBytes, bool isSigned, int pixelCount)
        : m_lowest(!isSigned  ? 0
                   : twoBytes ? -32768
                              : -128),
          m_highest(m_lowest + (twoBytes ? 65535 : 255)),
          m_isSigned(isSigned),
          m_pixelCount(pixelCount) {}

    void count(int value) { ++m_counts[value]; }

    void analyze() {
        findRange();
        const double mean = static_cast<double>(m_pixelCount) / (maximum - minimum + 1);
        const double floorTerm = std::pow(1.1, -std::pow(mean, 1.2));
        std::vector<long> compressed;
        std::vector<long> weighted;
        for (int value = minimum; value <= maximum; ++value) {
            const auto found = m_counts.find(value);
            const int c = found == m_counts.end() ? 0 : found->second;
            compressed.push_back(halfUp((std::log(30.0 + c) - 3.4011973816621555) / 0.0009995003330834232));
            const double weight = 1000 * (std::pow(1.1, -std::pow(mean / (c + 1), 1.2)) - floorTerm);
            weighted.push_back(halfUp(weight));
        }
        for (int level = 0; level < 10; ++level) {
            search(compressed, 100 - 5 * level, widthsA[level], centersA[level]);
            search(weighted, 100 - 5 * level, widthsB[level], centersB[level]);
        }
    }

    int minimum = 0;
    int maximum = 0;
    Levels widthsA{}, centersA{}, widthsB{}, centersB{};

private:
    // NOLINTNEXTLINE(bugprone-incorrect-roundings): the sum is to be rounded as the daemon's is
    static long halfUp(double value) { return static_cast<long>(value + 0.5); }

    void findRange() {
        minimum = m_isSigned ? m_highest + 1 : 0;
        maximum = m_highest;
        if (m_counts.empty()) return;
        minimum = m_counts.begin()->first;
        maximum = m_counts.rbegin()->first;
    }

    /// For every lower bound the shortest interval that holds the share.
    void search(const std::vector<long>& bins, int percent, int& width, int& center) const {
        std::vector<long> sums{0};  // sums[i] is the sum of the first i bins
        for (long bin : bins)
            sums.push_back(sums.back() + bin);
        const long total = sums.back();
        const long target = halfUp(static_cast<double>(percent) * total / 100);
        size_t bestStart = 0;
        size_t bestEnd = bins.size();
        long bestCount = total;
        for (size_t start = 0; total > 0 && start < bins.size(); ++start) {
            const auto reached = std::lower_bound(sums.begin() + start, sums.end(), sums[start] + target);
            if (reached == sums.end()) break;
            const size_t end = static_cast<size_t>(reached - sums.begin());
            const long sum = *reached - sums[start];
            const bool narrower = end - start < bestEnd - bestStart;
            if (narrower || (end - start == bestEnd - bestStart && sum > bestCount)) {
                bestStart = start;
                bestEnd = end;
                bestCount = sum;
            }
        }
        const int low = minimum + static_cast<int>(bestStart);
        const int high = minimum + static_cast<int>(bestEnd);
        width = high - low;
        center = (high + low) / 2;
    }

    int m_lowest;
    int m_highest;
    bool m_isSigned;
    int m_pixelCount;
    std::map<int, int> m_counts;
};
