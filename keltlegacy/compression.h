#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "keltlegacy/bitstreamer.h"
#include "keltlegacy/filter4_2.h"
#include "keltlegacy/wavelet.h"

namespace keltlegacy {

inline constexpr size_t kHeaderSize = 10;
inline constexpr char kMagic[] = {'K', 'T', '1', '0'};

/// Compresses one picture into the payload of a ".cw1" file.
class Compression {
public:
    /// `pixels`: borrowed: width x height pixels without gaps; 1 byte (grey), 2 bytes (16-bit grey in
    /// host
    ///     byte order) or 3 bytes (r, g, b) each.
    /// `bitsUsed`: written into the header, without other effect.
    Compression(const void* pixels, int bitsUsed, int bytesPerPixel, int width, int height);

    /// Writes the header and as much of the progressive bit stream as fits into `outSize` bytes in all; `out`
    /// holds at least 10 bytes whatever `outSize` says. Returns the bytes written: only the header's 10 for a
    /// pixel format other than the three, for a picture without pixels and when `kill` was called.
    size_t CompressTo(unsigned char* out, size_t outSize);

    // May be called from another thread. A stop alone changes nothing; a kill ends the transform early.
    void stop();
    void kill();

private:
    template <class T>
    using Planes = std::vector<std::vector<T>>;

    Planes<int16_t> loadBytes() const;
    Planes<int32_t> loadWords() const;
    Planes<int16_t> loadColours() const;
    template <class T>
    void compressPlanes(Wavelet<T>& wavelet, Planes<T> planes, BitStreamer& out) const;
    void compressPixels(BitStreamer& out);

    std::array<unsigned char, kHeaderSize> m_header;
    const void* m_pixels;
    int m_bytesPerPixel;
    int m_width;
    int m_height;
    Filter4_2<int16_t> m_filter16;
    Filter4_2<int32_t> m_filter32;
    Wavelet<int16_t> m_wavelet16{m_filter16};
    Wavelet<int32_t> m_wavelet32{m_filter32};
    std::atomic<int32_t> m_stop{0};
    std::atomic<int32_t> m_kill{0};
};

}  // namespace keltlegacy
