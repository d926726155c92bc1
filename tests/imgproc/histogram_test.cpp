#include "imgproc/histogram.h"

#include <random>

#include "tests/imgproc/plainhistogram.h"
#include "tests/shared/testing.h"

namespace {

using Samples = std::vector<int>;

void countInto(CHistogram& histogram, const Samples& samples, bool twoBytes) {
    Words words(samples.begin(), samples.end());
    Bytes bytes(samples.begin(), samples.end());
    if (twoBytes)
        histogram.countWords(words.data(), words.size());
    else
        histogram.countBytes(bytes.data(), bytes.size());
}

void expectAsPlain(CHistogram& histogram, const Samples& samples, bool twoBytes, bool isSigned) {
    const int pixels = static_cast<int>(samples.size());
    ASSERT_TRUE(histogram.init(twoBytes ? 2 : 1, isSigned, 1.1, 1.2, pixels));
    countInto(histogram, samples, twoBytes);
    histogram.analyze(0);

    PlainHistogram plain(twoBytes, isSigned, pixels);
    for (int sample : samples)
        plain.count(sample);
    plain.analyze();
    EXPECT_EQ(histogram.minimum(), plain.minimum);
    EXPECT_EQ(histogram.maximum(), plain.maximum);
    EXPECT_EQ(histogram.widthsA(), plain.widthsA);
    EXPECT_EQ(histogram.centersA(), plain.centersA);
    EXPECT_EQ(histogram.widthsB(), plain.widthsB);
    EXPECT_EQ(histogram.centersB(), plain.centersB);
}

Samples draw(std::mt19937& random, int count, const std::function<int()>& value) {
    Samples samples;
    samples.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i)
        samples.push_back(value());
    std::shuffle(samples.begin(), samples.end(), random);
    return samples;
}

}  // namespace

TEST(Histogram, FindsTheWindowsOfThePlainComputation) {
    std::mt19937 random(7);
    CHistogram histogram;  // one object for all, as a process has it
    for (bool twoBytes : {true, false}) {
        for (bool isSigned : {true, false}) {
            SCOPED_TRACE(std::string(twoBytes ? "words" : "bytes") + (isSigned ? ", signed" : ""));
            const int lowest = !isSigned ? 0 : twoBytes ? -32768 : -128;
            const int span = twoBytes ? 3000 : 256;
            const int middle = isSigned ? 0 : span / 2;
            const auto clamped = [&](double v) {
                return std::clamp(static_cast<int>(v), std::max(lowest, middle - span / 2),
                                  middle + span / 2 - 1);
            };
            std::normal_distribution<double> bell(middle, span / 8.0);
            std::uniform_int_distribution<int> flat(middle - span / 2, middle + span / 2 - 1);
            expectAsPlain(histogram, draw(random, 80000, [&] { return clamped(bell(random)); }), twoBytes,
                          isSigned);
            expectAsPlain(histogram, draw(random, 700, [&] { return flat(random); }), twoBytes, isSigned);
            expectAsPlain(histogram,
                          draw(random, 9000,
                               [&] { return random() % 3 ? middle : clamped(middle + bell(random) / 9); }),
                          twoBytes, isSigned);
            expectAsPlain(histogram, Samples(100, middle), twoBytes, isSigned);
            expectAsPlain(histogram, {middle - 1}, twoBytes, isSigned);
            expectAsPlain(histogram, {middle - span / 2, middle + span / 2 - 1}, twoBytes, isSigned);
            if (isSigned) expectAsPlain(histogram, {-1, -1, -3, -100}, twoBytes, isSigned);
        }
    }
}

TEST(Histogram, FindsTheWindowsOfTheWholeRangeOfWords) {
    CHistogram histogram;
    expectAsPlain(histogram, {0, 1, 1, 2, 65534, 65535, 65535}, true, false);
    expectAsPlain(histogram, {-32768, -5, -5, -5, 9, 32767}, true, true);
    // Windows of many blocks of starts, and many that are equally narrow.
    std::mt19937 random(8);
    const auto any = [&] { return static_cast<int>(random() % 65536); };
    expectAsPlain(histogram, draw(random, 40000, any), true, false);
    expectAsPlain(histogram, draw(random, 5000, [&] { return any() / 256 * 256; }), true, false);
    expectAsPlain(histogram, draw(random, 50000, [&] { return (any() + any()) / 2 - 32768; }), true, true);
    expectAsPlain(histogram, draw(random, 999, [&] { return random() % 2 ? 3 : any(); }), true, false);
}

TEST(Histogram, ReportsTheRangeOfWhatWasCounted) {
    CHistogram histogram;
    ASSERT_TRUE(histogram.init(2, true, 1.1, 1.2, 10));
    for (int value = -1000; value <= 1000; value += 100)
        histogram.count(static_cast<uint16_t>(value));
    EXPECT_EQ(histogram.counts()[64536], 1U);
    histogram.calculateMinMax();
    EXPECT_EQ(histogram.minimum(), -1000);
    EXPECT_EQ(histogram.maximum(), 1000);

    for (const auto& [bytes, isSigned, minimum, maximum] :
         {std::tuple{2, true, 32768, 32767}, {1, true, 128, 127}, {2, false, 0, 65535}, {3, false, 0, 255}}) {
        ASSERT_TRUE(histogram.init(bytes, isSigned, 1.1, 1.2, 10));
        histogram.analyze(0);
        EXPECT_EQ(histogram.minimum(), minimum);
        EXPECT_EQ(histogram.maximum(), maximum);
        EXPECT_EQ(histogram.widthsA()[9], maximum + 1 - minimum);
        for (uint32_t count : histogram.counts())
            ASSERT_EQ(count, 0U) << "left over from the frame before";
    }
}
