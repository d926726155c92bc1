#include "tools/picture/elementheader.h"

#include <bit>
#include <cmath>
#include <cstring>

namespace picture {
namespace {

uint32_t word(std::span<const uint8_t> bytes, size_t at) {
    return bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 | static_cast<uint32_t>(bytes[at + 3]) << 24;
}

}  // namespace

std::optional<DisplayWindow> readElementHeader(std::span<const uint8_t> bytes) {
    constexpr uint32_t kVersion = 0x00180001;
    if (bytes.size() < kElementHeaderSize || std::memcmp(bytes.data(), "QXID", 4) != 0 ||
        word(bytes, 4) != kVersion)
        return std::nullopt;
    const auto real = [&](size_t at) { return double{std::bit_cast<float>(word(bytes, at))}; };
    const double width = real(16);
    return DisplayWindow{real(8), real(12), std::fabs(width), real(20), width < 0};
}

}  // namespace picture
