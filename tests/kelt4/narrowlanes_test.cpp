// Whether 16-bit lanes hold what the transform of 12-bit samples makes: by analysis for every frame, and by
// the frames that come closest.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>
#include <random>

#include "kelt4/fastencoder.h"
#include "kelt4/geometry.h"
#include "tests/kelt4/frames.h"

using namespace dvq::kelt4;

namespace {

using Weights = std::vector<double>;
using PerLevel = std::array<double, kMaxLevels>;

/// How a number that the transform of one direction forms depends on the samples, and on the values that the
/// lifting steps before it form; without roundings. For several such numbers the greatest of each.
struct Gains {
    double samples = 0;   ///< sum of the magnitudes of the samples' weights
    double constant = 0;  ///< magnitude of the sum of the weights
    PerLevel before{};    ///< sums of the magnitudes of the weights of a level's values before it is lifted,
    PerLevel details{};   ///< of its details as they are predicted,
    PerLevel updates{};   ///< of its approximations as they are updated,
    PerLevel after{};     ///< and of all its values when it is lifted

    void widen(const Gains& other) {
        samples = std::max(samples, other.samples);
        constant = std::max(constant, other.constant);
        for (size_t l = 0; l < kMaxLevels; ++l) {
            before[l] = std::max(before[l], other.before[l]);
            details[l] = std::max(details[l], other.details[l]);
            updates[l] = std::max(updates[l], other.updates[l]);
            after[l] = std::max(after[l], other.after[l]);
        }
    }
};

double magnitude(const Weights& weights, size_t first = 0, size_t step = 1) {
    double sum = 0;
    for (size_t i = first; i < weights.size(); i += step)
        sum += std::abs(weights[i]);
    return sum;
}

/// From the weights of lifted values to those of the values before a step: the step's transpose. Neighbours
/// beyond an end are mirrored.
void transposeStep(Weights& weights, size_t first, double factor) {
    for (size_t i = first; i < weights.size(); i += 2) {
        const size_t right = i + 1 < weights.size() ? i + 1 : i - 1, left = i > 0 ? i - 1 : right;
        weights[left] += factor * weights[i];
        weights[right] += factor * weights[i];
    }
}

enum class Stage { Unlifted, Predicted, Lifted };

/// Gains of the number that these `weights` make of the values of a level as they are in a `stage`, for a
/// side of so many samples. `samples` becomes the weights of the samples.
Gains gainsOf(Weights weights, int level, Stage stage, int side, Weights* samples = nullptr) {
    Gains gains;
    for (auto l = static_cast<size_t>(level);; --l) {
        if (stage == Stage::Lifted) {
            gains.after[l] = magnitude(weights);
            gains.updates[l] = magnitude(weights, 0, 2);
            transposeStep(weights, 0, 0.25);
        }
        if (stage != Stage::Unlifted) {
            gains.details[l] = magnitude(weights, 1, 2);
            transposeStep(weights, 1, -0.5);
        }
        gains.before[l] = magnitude(weights);
        if (l == 0) break;
        stage = Stage::Lifted;
        Weights finer(static_cast<size_t>(latticeSide(side, static_cast<int>(l) - 1)));
        for (size_t i = 0; i < weights.size(); ++i)
            finer[2 * i] = weights[i];
        weights = finer;
    }
    gains.samples = magnitude(weights);
    for (const double weight : weights)
        gains.constant += weight;
    gains.constant = std::abs(gains.constant);
    if (samples != nullptr) *samples = weights;
    return gains;
}

/// What a level forms along one direction.
struct LevelGains {
    Gains unlifted, unliftedSum, detail, detailSum, approximation;
};

/// The greatest over all sides with that level and all places. A level is lifted from 16 values on, and
/// nothing that it forms depends on more than 8 of them: one end of the side at most has a part in it. At the
/// lower end everything counts from there; what is at the upper end depends on how the side lies to the next
/// level's lattice.
LevelGains gainsOfLevel(int level) {
    LevelGains all;
    const int smallest = 16 << level;
    for (int side = smallest; side < smallest + (2 << level); ++side) {
        const auto count = static_cast<size_t>(latticeSide(side, level));
        const auto add = [&](Gains& gains, Stage stage, std::initializer_list<size_t> places) {
            Weights weights(count);
            for (const size_t place : places)
                weights[place] += 1;
            gains.widen(gainsOf(weights, level, stage, side));
        };
        for (size_t i = 0; i < count; ++i) {
            const size_t right = i + 1 < count ? i + 1 : i - 1, left = i > 0 ? i - 1 : right;
            add(all.unlifted, Stage::Unlifted, {i});
            add(i % 2 != 0 ? all.unliftedSum : all.detailSum, i % 2 != 0 ? Stage::Unlifted : Stage::Predicted,
                {left, right});
            add(i % 2 != 0 ? all.detail : all.approximation, Stage::Lifted, {i});
        }
    }
    return all;
}

/// The greatest magnitude that a number of these gains along x and along y can have for samples from 0 to
/// `largest`: what it would be without roundings, and what they add. Each is off by at most a half. Rows are
/// lifted before columns at every level.
double bound(const Gains& x, const Gains& y, double largest) {
    double roundings = 0;
    for (size_t l = 0; l < kMaxLevels; ++l)
        roundings += (x.details[l] + x.updates[l]) * y.before[l] + x.after[l] * (y.details[l] + y.updates[l]);
    return (x.samples * y.samples + x.constant * y.constant) / 2 * largest + roundings / 2;
}

/// The frame whose samples make the greatest sum of two coefficients, or the least: at level 7 that of the
/// details above and below a row at the upper border, in a column near the right one.
TestFrame worstFrame(int width, int height, int largest, bool greatest) {
    Weights x(static_cast<size_t>(latticeSide(width, 7))), y(static_cast<size_t>(latticeSide(height, 7)));
    x[17] = 1;
    y[1] = 2;
    Weights columns, rows;
    gainsOf(x, 7, Stage::Lifted, width, &columns);
    gainsOf(y, 7, Stage::Predicted, height, &rows);
    TestFrame frame{width, height, 2, {}, 12};
    for (const double row : rows) {
        for (const double column : columns) {
            const bool high = row * column != 0 && (row * column > 0) == greatest;
            const int sample = high ? largest : 0;
            frame.pixels.push_back(static_cast<uint8_t>(sample));
            frame.pixels.push_back(static_cast<uint8_t>(sample >> 8));
        }
    }
    return frame;
}

}  // namespace

TEST(NarrowLanes, HoldEverySumOfEveryFrame) {
    // The rounding of a sum adds up to two to it in its lane.
    constexpr double kLimit = 32767 - 2;
    double worst = 0;
    for (int level = 0; level < kMaxLevels; ++level) {
        const LevelGains gains = gainsOfLevel(level);
        const Gains* formed[] = {&gains.unliftedSum, &gains.detail, &gains.detailSum, &gains.approximation};
        for (const Gains* number : formed) {
            worst = std::max(worst, bound(*number, gains.unlifted, kNarrowSamples - 1));
            for (const Gains* row : {&gains.approximation, &gains.detail})
                worst = std::max(worst, bound(*row, *number, kNarrowSamples - 1));
        }
    }
    EXPECT_LE(worst, kLimit);
    EXPECT_GT(worst, kLimit - 100) << "the analysis has lost sight of the worst sum";
}

TEST(NarrowLanes, HoldTheWorstFrames) {
    for (const unsigned largest : {kNarrowSamples - 1, kGuardedSamples - 1}) {  // the second need wider lanes
        for (const bool greatest : {true, false}) {
            const TestFrame frame = worstFrame(2225, 2048, static_cast<int>(largest), greatest);
            const Bytes expected = encode(frame, findKernel("reference"));
            for (const Kernel& kernel : availableKernels())
                EXPECT_EQ(encode(frame, kernel), expected) << kernel.name;
        }
    }
}

TEST(NarrowLanes, AreLeftWhereCoefficientsOutgrowThem) {
    // Squares of extremes: in lanes of 16 bits the details of some of their levels wrap, and of others what
    // is handed on to the next level.
    for (int square = 0; square < 6; ++square) {
        for (const int height : {320, 16}) {
            std::mt19937 random(static_cast<unsigned>(square));
            TestFrame frame{384, height, 2, {}, 13};
            std::vector<unsigned> samples;
            for (int y = 0; y < height; ++y) {
                for (int x = 0; x < frame.width; ++x) {
                    const auto above = samples.size() - static_cast<size_t>(frame.width);
                    samples.push_back(y >> square << square != y   ? samples[above]
                                      : x >> square << square != x ? samples.back()
                                                                   : random() % 2 * (kGuardedSamples - 1));
                    frame.pixels.push_back(static_cast<uint8_t>(samples.back()));
                    frame.pixels.push_back(static_cast<uint8_t>(samples.back() >> 8));
                }
            }
            const Bytes expected = encode(frame, findKernel("reference"));
            for (const Kernel& kernel : availableKernels())
                EXPECT_EQ(encode(frame, kernel), expected) << kernel.name << ", squares of " << (1 << square);
        }
    }
}
