#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace dvq::kelt4 {

/// The 16 bytes at the start of a payload: magic "KT41", bytes per pixel, bits used, width and height
/// (little-endian 16-bit), six zeros.
struct KeltHeader {
    static constexpr size_t kSize = 16;
    static constexpr std::array<uint8_t, 4> kMagic = {'K', 'T', '4', '1'};

    std::array<uint8_t, kSize> bytes{};
};

/// Typed access to a payload's header.
class CKeltHeader : private KeltHeader {
public:
    using KeltHeader::kSize;

    CKeltHeader() = default;
    /// Only the low 8 bits of bitsUsed and the low 16 of the sides are kept.
    CKeltHeader(int bytesPerPixel, int bitsUsed, int width, int height) {
        for (size_t i = 0; i < kMagic.size(); ++i)
            bytes[i] = kMagic[i];
        bytes[4] = static_cast<uint8_t>(bytesPerPixel);
        bytes[5] = static_cast<uint8_t>(bitsUsed);
        put16(6, width);
        put16(8, height);
    }
    /// Takes the header from the first kSize bytes of a payload.
    explicit CKeltHeader(const uint8_t* payload) {
        for (size_t i = 0; i < kSize; ++i)
            bytes[i] = payload[i];
    }

    bool hasMagic() const {
        for (size_t i = 0; i < kMagic.size(); ++i) {
            if (bytes[i] != kMagic[i]) return false;
        }
        return true;
    }
    /// 1: 8-bit grey, 2: 16-bit grey, 3: 8-bit RGB.
    int bytesPerPixel() const { return bytes[4]; }
    int bitsUsed() const { return bytes[5]; }
    int width() const { return get16(6); }
    int height() const { return get16(8); }
    int components() const { return bytesPerPixel() == 3 ? 3 : 1; }
    const uint8_t* data() const { return bytes.data(); }

private:
    void put16(size_t at, int value) {
        bytes[at] = static_cast<uint8_t>(value);
        bytes[at + 1] = static_cast<uint8_t>(value >> 8);
    }
    int get16(size_t at) const { return bytes[at] | bytes[at + 1] << 8; }
};

}  // namespace dvq::kelt4
