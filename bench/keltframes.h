#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// A frame as the wavelet coder gets it: smallest sample 0, rows without gaps.
struct BenchFrame {
    std::string name;
    int width = 0;
    int height = 0;
    /// 1: 8-bit grey, 2: 16-bit grey, 3: RGB interleaved.
    int bytesPerPixel = 0;
    /// Bits of the greatest sample.
    int bitsUsed = 0;
    std::vector<uint8_t> pixels;

    int components() const { return bytesPerPixel == 3 ? 3 : 1; }
};

/// The frames that the coders are measured on, one of each of sixteen kinds, read from the uncompressed
/// objects of the corpus folder (environment variable VINTAKD_CORPUS, else the folder given at build time).
/// Throws std::runtime_error when one is missing.
std::vector<BenchFrame> loadBenchFrames();
