#pragma once

#include <cstdint>
#include <vector>

/// A second, deliberately naive encoder for tests: whole passes, lists of values, vectors of single bits. It
/// shares nothing with the code under test.
std::vector<uint8_t> modelEncode(const std::vector<uint8_t>& pixels, int bytesPerPixel, int bitsUsed,
                                 int width, int height);
