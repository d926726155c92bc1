#pragma once

#include <cstdint>
#include <vector>

#include "bench/keltframes.h"

/// Lossless coders of the same frames to compare with, one thread each: OpenJPEG and OpenJPH (reversible, 5
/// decompositions, 64x64 blocks) and CharLS. All throw std::runtime_error on failure.
namespace peers {

using Encode = std::vector<uint8_t> (*)(const BenchFrame& frame);
using Decode = std::vector<uint8_t> (*)(const BenchFrame& frame, const std::vector<uint8_t>& coded);

std::vector<uint8_t> encodeOpenJpeg(const BenchFrame& frame);
std::vector<uint8_t> encodeOpenJph(const BenchFrame& frame);
std::vector<uint8_t> encodeCharLs(const BenchFrame& frame);

/// Decoders give the pixels in the frame's own layout.
std::vector<uint8_t> decodeOpenJpeg(const BenchFrame& frame, const std::vector<uint8_t>& coded);
std::vector<uint8_t> decodeOpenJph(const BenchFrame& frame, const std::vector<uint8_t>& coded);
std::vector<uint8_t> decodeCharLs(const BenchFrame& frame, const std::vector<uint8_t>& coded);

/// Grey samples of the frame's size to 32 bits and back.
inline void widenSamples(const BenchFrame& frame, const uint8_t* from, size_t count, int32_t* to) {
    const auto* const words = reinterpret_cast<const uint16_t*>(from);
    for (size_t i = 0; i < count; ++i)
        to[i] = frame.bytesPerPixel == 2 ? words[i] : from[i];
}
inline void narrowSamples(const BenchFrame& frame, const int32_t* from, size_t count, uint8_t* to) {
    auto* const words = reinterpret_cast<uint16_t*>(to);
    for (size_t i = 0; i < count; ++i) {
        if (frame.bytesPerPixel == 2)
            words[i] = static_cast<uint16_t>(from[i]);
        else
            to[i] = static_cast<uint8_t>(from[i]);
    }
}

/// Another version of a coder lives in a module of its own, because two versions of one library cannot be
/// linked into one program. The module exports one function of this type by this name.
struct Coder {
    const char* name;
    Encode encode;
    Decode decode;
};
using ModuleEntry = Coder (*)();
inline constexpr const char* kModuleEntry = "vintakdBenchPeer";

}  // namespace peers
