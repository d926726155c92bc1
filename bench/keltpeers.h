#pragma once

#include <cstdint>
#include <vector>

#include "bench/keltframes.h"

/// Lossless coders of the same frames to compare with, one thread each: OpenJPEG and OpenJPH (reversible, 5
/// decompositions, 64x64 blocks) and CharLS. All throw std::runtime_error on failure.
namespace peers {

std::vector<uint8_t> encodeOpenJpeg(const BenchFrame& frame);
std::vector<uint8_t> encodeOpenJph(const BenchFrame& frame);
std::vector<uint8_t> encodeCharLs(const BenchFrame& frame);

/// Decoders give the pixels in the frame's own layout.
std::vector<uint8_t> decodeOpenJpeg(const BenchFrame& frame, const std::vector<uint8_t>& coded);
std::vector<uint8_t> decodeOpenJph(const BenchFrame& frame, const std::vector<uint8_t>& coded);
std::vector<uint8_t> decodeCharLs(const BenchFrame& frame, const std::vector<uint8_t>& coded);

}  // namespace peers
