#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "keltlegacy/decoder.h"
#include "keltlegacy/keltcompress.h"

/// The legacy thumbnail coder. The first byte of the input chooses: the rest is a payload to decode, or
/// pixels to code and decode again.
namespace {

using Bytes = std::vector<uint8_t>;

void require(bool condition) {
    if (!condition) std::abort();
}

void decodeAnything(std::span<const uint8_t> payload) {
    constexpr uint64_t kPixelLimit = 1 << 16;
    keltlegacy::Picture picture;
    const keltlegacy::DecodeStatus status = keltlegacy::decode(payload, picture, kPixelLimit);
    if (status != keltlegacy::DecodeStatus::Ok) return;
    const auto pixels = static_cast<uint64_t>(picture.width) * static_cast<uint64_t>(picture.height);
    require(pixels > 0 && pixels <= kPixelLimit);
    require(picture.samples.size() == pixels * static_cast<unsigned>(picture.bytesPerPixel));
    require(picture.bitsRead <= (payload.size() - 10) * 8);
    uint64_t bits = picture.topPlane < 0 ? 0 : 8;
    for (const keltlegacy::PlaneRecord& plane : picture.planes)
        bits += plane.refinementBits + plane.significanceBits;
    require(bits == picture.bitsRead);
}

void thereAndBack(std::span<const uint8_t> input) {
    if (input.size() < 4) return;
    const int bytesPerPixel = 1 + input[0] % 3;
    const int width = 1 + input[1] % 70;
    const size_t budget = input[2] * 8u;
    const std::span<const uint8_t> data = input.subspan(3);
    const int height = static_cast<int>(data.size() / static_cast<size_t>(width * bytesPerPixel));
    if (height == 0) return;
    const Bytes pixels(data.begin(), data.begin() + width * height * bytesPerPixel);

    Bytes whole(pixels.size() * 8 + 4096);
    whole.resize(keltcompress(pixels.data(), 8, bytesPerPixel, width, height, whole.data(), whole.size()));
    keltlegacy::Picture picture;
    require(keltlegacy::decode(whole, picture) == keltlegacy::DecodeStatus::Ok);
    require(picture.complete && picture.samples == pixels);

    Bytes cut(budget < 10 ? 10 : budget);
    cut.resize(keltcompress(pixels.data(), 8, bytesPerPixel, width, height, cut.data(), budget));
    require(std::equal(cut.begin(), cut.end(), whole.begin()));
    require(keltlegacy::decode(cut, picture) == keltlegacy::DecodeStatus::Ok);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::span<const uint8_t> rest(data + 1, size - 1);
    if (data[0] % 2 == 0)
        decodeAnything(rest);
    else
        thereAndBack(rest);
    return 0;
}
