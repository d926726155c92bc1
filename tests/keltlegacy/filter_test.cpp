#include <cstdlib>
#include <random>

#include "keltlegacy/filter4_2.h"
#include "tests/shared/testing.h"

namespace {

using keltlegacy::Filter4_2;

int64_t nearest(int64_t a, int64_t divisor) {
    const int64_t quotient = (std::abs(a) + divisor / 2) / divisor;
    return a < 0 ? -quotient : quotient;
}

/// One line of samples, `step` apart, in the plainest form; `wrap` forms the predictor's sum in 16 bits.
void transformLine(int64_t* x, int n, int step, bool wrap) {
    if (n < 2) return;
    const auto at = [=](int i) -> int64_t& {
        while (i < 0 || i > n - 1)
            i = i < 0 ? -i : n - 1 - (i - (n - 1));
        return x[static_cast<ptrdiff_t>(i) * step];
    };
    for (int i = 1; i < n; i += 2) {
        int64_t sum = 9 * (at(i - 1) + at(i + 1)) - (at(i - 3) + at(i + 3));
        if (wrap) sum = ((sum + 32768) % 65536 + 65536) % 65536 - 32768;
        at(i) -= nearest(sum, 16);
    }
    for (int i = 0; i < n; i += 2)
        at(i) = nearest(152 * (at(i) + nearest(at(i - 1) + at(i + 1), 4)), 128);
}

template <class Sample>
void checkRowsWorkedOutByHand() {
    const Filter4_2<Sample> filter;
    std::vector<Sample> six{0, 0, 16, 0, 0, 0};
    filter.transform(six.data(), 6, 1);
    EXPECT_EQ(six, (std::vector<Sample>{-5, -8, 14, -9, -2, 2}));
    std::vector<Sample> seven{10, 20, 30, 40, 50, 60, 70};
    filter.transformInner(seven.data(), 7);
    EXPECT_EQ(seven, (std::vector<Sample>{13, 2, 37, 0, 58, -3, 81}));
    std::vector<Sample> one{77};
    filter.transform(one.data(), 1, 1);
    EXPECT_EQ(one.front(), 77);
}

/// Every length and direction against the plain form, and back. The range of 16-bit coefficients is wide
/// enough for the predictor's sum to wrap.
template <class Sample>
void checkAgainstThePlainForm() {
    constexpr bool kNarrow = sizeof(Sample) == 2;
    constexpr int kColumns = 3;
    const Filter4_2<Sample> filter;
    std::mt19937 random(5);
    std::uniform_int_distribution<int> value(kNarrow ? -6000 : -2'000'000, kNarrow ? 6000 : 2'000'000);
    for (int n = 2; n < 70; ++n) {
        std::vector<Sample> samples(static_cast<size_t>(n * kColumns));
        for (Sample& s : samples)
            s = static_cast<Sample>(value(random));
        std::vector<int64_t> expected(samples.begin(), samples.end());
        for (int c = 0; c < kColumns; ++c)
            transformLine(&expected[c], n, kColumns, kNarrow);
        const std::vector<Sample> wanted(expected.begin(), expected.end());

        std::vector<Sample> together = samples, single = samples;
        filter.transformColumns(together.data(), n, kColumns, kColumns);
        EXPECT_EQ(together, wanted) << n;
        for (int c = 0; c < kColumns; ++c)
            filter.transform(single.data() + c, n, kColumns);
        EXPECT_EQ(single, wanted) << n;

        filter.untransformColumns(together.data(), n, kColumns, kColumns);
        EXPECT_EQ(together, samples) << n;
        for (int c = 0; c < kColumns; ++c)
            filter.untransform(single.data() + c, n, kColumns);
        EXPECT_EQ(single, samples) << n;
    }
}

TEST(LegacyFilterTest, RowsWorkedOutByHand) {
    checkRowsWorkedOutByHand<int16_t>();
    checkRowsWorkedOutByHand<int32_t>();
}

TEST(LegacyFilterTest, AgreesWithThePlainFormAndGoesBack) {
    checkAgainstThePlainForm<int16_t>();
    checkAgainstThePlainForm<int32_t>();
}

}  // namespace
