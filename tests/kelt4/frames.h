#pragma once

#include <random>
#include <utility>

#include "bench/keltframes.h"
#include "kelt4/keltcompressor.h"
#include "tests/shared/testing.h"

/// Frames for tests: every kind of content that stresses the coder in its own way.
struct TestFrame {
    int width;
    int height;
    int bytesPerPixel;
    Bytes pixels;
    int bitsUsed = 8;
};

enum class Content { kZero, kGreatest, kNoise, kExtremes, kSmooth, kTwoBits, kOnePoint };
inline constexpr Content kContents[] = {Content::kZero,     Content::kGreatest, Content::kNoise,
                                        Content::kExtremes, Content::kSmooth,   Content::kTwoBits,
                                        Content::kOnePoint};

inline Bytes payloadOf(const dvq::kelt4::CKeltCompressor& compressor) {
    return Bytes(compressor.payload(), compressor.payload() + compressor.payloadSize());
}

inline Bytes encode(const TestFrame& frame, const dvq::kelt4::Kernel& kernel = dvq::kelt4::activeKernel()) {
    dvq::kelt4::CKeltCompressor compressor(frame.pixels.data(), frame.bytesPerPixel, frame.bitsUsed,
                                           frame.width, frame.height, kernel);
    EXPECT_EQ(compressor.compress(0), 0);
    return payloadOf(compressor);
}

inline std::vector<std::string> kernelNames(bool decodersOnly) {
    std::vector<std::string> names;
    for (const dvq::kelt4::Kernel& kernel : dvq::kelt4::availableKernels())
        if (!decodersOnly || kernel.encode != nullptr) names.emplace_back(kernel.name);
    return names;
}

/// Real frames; none where the corpus is missing.
inline std::vector<TestFrame> realFrames() {
    std::vector<TestFrame> frames;
    try {
        for (BenchFrame& frame : loadBenchFrames())
            frames.push_back(
                {frame.width, frame.height, frame.bytesPerPixel, std::move(frame.pixels), frame.bitsUsed});
    } catch (const std::runtime_error&) {
    }
    return frames;
}

inline TestFrame makeFrame(int width, int height, int bytesPerPixel, Content content, unsigned seed = 1) {
    TestFrame frame{width, height, bytesPerPixel, {}};
    const size_t samples =
        static_cast<size_t>(width) * static_cast<size_t>(height) * (bytesPerPixel == 3 ? 3 : 1);
    const unsigned greatest = bytesPerPixel == 2 ? 65535 : 255;
    std::mt19937 random(seed);
    for (size_t i = 0; i < samples; ++i) {
        unsigned value = 0;
        switch (content) {
            case Content::kZero:
                break;
            case Content::kGreatest:
                value = greatest;
                break;
            case Content::kNoise:
                value = random() & greatest;
                break;
            case Content::kExtremes:
                value = random() % 2 * greatest;
                break;
            case Content::kSmooth:
                value = static_cast<unsigned>((i % 97 + i / 53 + random() % 4) %
                                              (bytesPerPixel == 2 ? 4096 : 256));
                break;
            case Content::kTwoBits:
                value = random() % 4;
                break;
            case Content::kOnePoint:
                value = i == samples / 2 ? greatest : 0;
                break;
        }
        frame.pixels.push_back(static_cast<uint8_t>(value));
        if (bytesPerPixel == 2) frame.pixels.push_back(static_cast<uint8_t>(value >> 8));
    }
    return frame;
}
