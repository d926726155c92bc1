#include <charls/charls.h>

#include <algorithm>

#include "bench/keltpeers.h"

std::vector<uint8_t> peers::encodeCharLs(const BenchFrame& frame) {
    // Up to 8 bits the library reads samples of one byte.
    const int bits = frame.bytesPerPixel == 2 ? std::max(frame.bitsUsed, 9) : 8;
    charls::jpegls_encoder encoder;
    encoder.frame_info(
        {static_cast<uint32_t>(frame.width), static_cast<uint32_t>(frame.height), bits, frame.components()});
    if (frame.components() == 3) encoder.interleave_mode(charls::interleave_mode::sample);
    std::vector<uint8_t> coded(encoder.estimated_destination_size());
    encoder.destination(coded);
    coded.resize(encoder.encode(frame.pixels));
    return coded;
}

std::vector<uint8_t> peers::decodeCharLs(const BenchFrame& frame, const std::vector<uint8_t>& coded) {
    charls::jpegls_decoder decoder(coded, true);
    std::vector<uint8_t> pixels(frame.pixels.size());
    decoder.decode(pixels);
    return pixels;
}
