// Whether 16-bit lanes hold what the transform of 12-bit samples makes, by the frames that come closest. By
// analysis of all levels, places and roundings no frame makes a sum beyond 32697; without the roundings,
// these frames make the greatest and the least, so that a limit which is one bit higher shows in them.
#include <gtest/gtest.h>

#include "frames.h"
#include "kelt4/fastencoder.h"
#include "kelt4/geometry.h"

using namespace dvq::kelt4;

namespace {

using Weights = std::vector<double>;

/// From the weights of lifted values to those of the values before a step: the step's transpose. Neighbours
/// beyond an end are mirrored.
void transposeStep(Weights& weights, size_t first, double factor) {
    for (size_t i = first; i < weights.size(); i += 2) {
        const size_t right = i + 1 < weights.size() ? i + 1 : i - 1, left = i > 0 ? i - 1 : right;
        weights[left] += factor * weights[i];
        weights[right] += factor * weights[i];
    }
}

/// The weights of the values before both steps of a level.
Weights transposed(Weights weights) {
    transposeStep(weights, 0, 0.25);
    transposeStep(weights, 1, -0.5);
    return weights;
}

/// From the weights of the values of a level, before it is lifted, to those of the samples of a side.
Weights weightsOfSamples(Weights weights, int level, int side) {
    while (level-- > 0) {
        Weights finer(static_cast<size_t>(latticeSide(side, level)));
        for (size_t i = 0; i < weights.size(); ++i)
            finer[2 * i] = weights[i];
        weights = transposed(finer);
    }
    return weights;
}

/// The frame whose samples make the greatest sum of two coefficients, or the least: at level 7 that of the
/// details above and below a row at the upper border, in a column near the right one.
TestFrame worstFrame(int width, int height, bool greatest) {
    Weights x(static_cast<size_t>(latticeSide(width, 7))), y(static_cast<size_t>(latticeSide(height, 7)));
    x[17] = 1;
    y[1] = 2;
    transposeStep(y, 1, -0.5);  // predicted, and not updated yet
    const Weights columns = weightsOfSamples(transposed(x), 7, width), rows = weightsOfSamples(y, 7, height);
    TestFrame frame{width, height, 2, {}, 12};
    for (const double row : rows) {
        for (const double column : columns) {
            const bool high = row * column != 0 && (row * column > 0) == greatest;
            const int sample = high ? kNarrowSamples - 1 : 0;
            frame.pixels.push_back(static_cast<std::uint8_t>(sample));
            frame.pixels.push_back(static_cast<std::uint8_t>(sample >> 8));
        }
    }
    return frame;
}

}  // namespace

TEST(NarrowLanes, HoldTheWorstFrames) {
    for (const bool greatest : {true, false}) {
        const TestFrame frame = worstFrame(2225, 2048, greatest);
        const Bytes expected = encode(frame, findKernel("reference"));
        for (const Kernel& kernel : availableKernels())
            EXPECT_EQ(encode(frame, kernel), expected) << kernel.name;
    }
}
