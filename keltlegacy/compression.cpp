#include "keltlegacy/compression.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "keltlegacy/levels.h"

namespace keltlegacy {
namespace {

unsigned char byteOf(int value, int index) {
    return static_cast<unsigned char>(static_cast<unsigned>(value) >> (8 * index));
}

}  // namespace

Compression::Compression(const void* pixels, int bitsUsed, int bytesPerPixel, int width, int height)
    : m_pixels(pixels), m_bytesPerPixel(bytesPerPixel), m_width(width), m_height(height) {
    std::copy(std::begin(kMagic), std::end(kMagic), m_header.begin());
    m_header[4] = byteOf(bytesPerPixel, 0);
    m_header[5] = byteOf(bitsUsed, 0);
    m_header[6] = byteOf(width, 0);
    m_header[7] = byteOf(width, 1);
    m_header[8] = byteOf(height, 0);
    m_header[9] = byteOf(height, 1);
}

size_t Compression::CompressTo(unsigned char* out, size_t outSize) {
    std::copy(m_header.begin(), m_header.end(), out);
    BitStreamer stream(out + kHeaderSize, outSize > kHeaderSize ? outSize - kHeaderSize : 0);
    try {
        if (m_width > 0 && m_height > 0) compressPixels(stream);
    } catch (int) {
        // The output is full: what fits is a valid payload.
    }
    return kHeaderSize + stream.bytesWritten();
}

void Compression::stop() {
    m_stop = 1;
    m_wavelet16.stop();
    m_wavelet32.stop();
}

void Compression::kill() {
    m_stop = 1;
    m_kill = 1;
    m_wavelet16.kill();
    m_wavelet32.kill();
}

void Compression::compressPixels(BitStreamer& out) {
    switch (m_bytesPerPixel) {
        case 1:
            return compressPlanes(m_wavelet16, loadBytes(), out);
        case 2:
            return compressPlanes(m_wavelet32, loadWords(), out);
        case 3:
            return compressPlanes(m_wavelet16, loadColours(), out);
        default:
            return;
    }
}

template <class T>
void Compression::compressPlanes(Wavelet<T>& wavelet, Planes<T> planes, BitStreamer& out) const {
    const int levels = levelCount(m_width, m_height);
    std::vector<LevelClasses<T>> components;
    for (std::vector<T>& plane : planes)
        components.push_back(wavelet.transform(std::move(plane), m_width, m_height, levels));
    if (m_kill != 0) return;
    Wavelet<T>::writeWavelet(components, out);
    out.close();
}

Compression::Planes<int16_t> Compression::loadBytes() const {
    const auto* samples = static_cast<const unsigned char*>(m_pixels);
    const size_t count = static_cast<size_t>(m_width) * static_cast<size_t>(m_height);
    return {std::vector<int16_t>(samples, samples + count)};
}

Compression::Planes<int32_t> Compression::loadWords() const {
    const auto* samples = static_cast<const unsigned char*>(m_pixels);
    std::vector<int32_t> plane(static_cast<size_t>(m_width) * static_cast<size_t>(m_height));
    for (size_t i = 0; i < plane.size(); ++i) {
        uint16_t sample;
        std::memcpy(&sample, samples + 2 * i, sizeof sample);
        plane[i] = sample;
    }
    return {std::move(plane)};
}

Compression::Planes<int16_t> Compression::loadColours() const {
    const auto* pixel = static_cast<const unsigned char*>(m_pixels);
    const size_t count = static_cast<size_t>(m_width) * static_cast<size_t>(m_height);
    Planes<int16_t> planes(3, std::vector<int16_t>(count));
    for (size_t i = 0; i < count; ++i, pixel += 3) {
        const int r = pixel[0], g = pixel[1], b = pixel[2];
        planes[0][i] = static_cast<int16_t>((r + 2 * g + b) >> 2);
        planes[1][i] = static_cast<int16_t>(r - g);
        planes[2][i] = static_cast<int16_t>(b - g);
    }
    return planes;
}

}  // namespace keltlegacy
