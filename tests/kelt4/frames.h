#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

/// Frames for tests: every kind of content that stresses the coder in its own way.
struct TestFrame {
    int width;
    int height;
    int bytesPerPixel;
    std::vector<uint8_t> pixels;
};

enum class Content { kZero, kGreatest, kNoise, kExtremes, kSmooth, kTwoBits, kOnePoint };
inline constexpr Content kContents[] = {Content::kZero,     Content::kGreatest, Content::kNoise,
                                        Content::kExtremes, Content::kSmooth,   Content::kTwoBits,
                                        Content::kOnePoint};

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
