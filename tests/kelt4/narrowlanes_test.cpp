// Whether 16-bit lanes hold what the transform of 12-bit samples makes, by the frames that come closest.
#include <cmath>
#include <utility>

#include "kelt4/fastencoder.h"
#include "kelt4/geometry.h"
#include "tests/kelt4/frames.h"

using namespace dvq::kelt4;

namespace {

using Weights = std::vector<double>;

double magnitude(const Weights& weights) {
    double sum = 0;
    for (const double weight : weights)
        sum += std::abs(weight);
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

/// The weights of a side's samples in the number that these `weights` make of the values of a level, which
/// are lifted or whose details alone are predicted.
Weights ofSamples(Weights weights, int level, int side, bool lifted) {
    for (;; --level, lifted = true) {
        if (lifted) transposeStep(weights, 0, 0.25);
        transposeStep(weights, 1, -0.5);
        if (level == 0) return weights;
        Weights finer(static_cast<size_t>(latticeSide(side, level - 1)));
        for (size_t i = 0; i < weights.size(); ++i)
            finer[2 * i] = weights[i];
        weights = std::move(finer);
    }
}

}  // namespace

/// Their samples make the greatest sum of two coefficients, or the least: at level 7 that of the details
/// above and below a row at the upper border, in a column near the right one.
TEST(NarrowLanes, HoldTheWorstFrames) {
    constexpr int kWidth = 2225, kHeight = 2048;
    Weights x(static_cast<size_t>(latticeSide(kWidth, 7))), y(static_cast<size_t>(latticeSide(kHeight, 7)));
    x[17] = 1;
    y[1] = 2;
    const Weights columns = ofSamples(x, 7, kWidth, true), rows = ofSamples(y, 7, kHeight, false);
    EXPECT_NEAR(magnitude(columns) * magnitude(rows) / 2, 7.9487, 0.0001) << "there are worse frames";
    for (const int largest : {kNarrowSamples - 1, 2 * kNarrowSamples - 1}) {  // the second need wider lanes
        for (const bool greatest : {true, false}) {
            TestFrame frame{kWidth, kHeight, 2, {}, 12};
            for (const double row : rows) {
                for (const double column : columns) {
                    const bool high = row * column != 0 && (row * column > 0) == greatest;
                    frame.pixels.push_back(static_cast<uint8_t>(high ? largest : 0));
                    frame.pixels.push_back(static_cast<uint8_t>(high ? largest >> 8 : 0));
                }
            }
            const Bytes expected = encode(frame, findKernel("reference"));
            for (const Kernel& kernel : availableKernels())
                EXPECT_EQ(encode(frame, kernel), expected) << kernel.name;
        }
    }
}
