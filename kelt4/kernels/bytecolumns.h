#pragma once

#include <cstdint>

#include "kelt4/kernels/attributes.h"

/// Bit-plane columns without vector instructions: 64 magnitudes to one word per plane and back, eight bits by
/// eight.
namespace dvq::kelt4::kernels {

/// Transposes eight bytes: bit i of byte p becomes bit p of byte i.
template <class Arch>
KELT_INLINE uint64_t transposeBits(uint64_t x) {
    uint64_t t = (x ^ x >> 7) & 0x00AA00AA00AA00AA;
    x ^= t ^ t << 7;
    t = (x ^ x >> 14) & 0x0000CCCC0000CCCC;
    x ^= t ^ t << 14;
    t = (x ^ x >> 28) & 0x00000000F0F0F0F0;
    return x ^ t ^ t << 28;
}

/// Splits 64 values into magnitude columns and signs; returns the number of planes in use.
template <class Arch, class T>
int toByteColumns(const T* values, uint64_t* columns, uint64_t& signs) {
    uint32_t magnitudes[64];
    uint32_t any = 0;
    signs = 0;
    for (int i = 0; i < 64; ++i) {
        const int32_t value = values[i];
        magnitudes[i] = static_cast<uint32_t>(value < 0 ? -value : value);
        any |= magnitudes[i];
        signs |= static_cast<uint64_t>(value < 0) << i;
    }
    if (any == 0) return 0;
    const int planes = 32 - __builtin_clz(any);
    for (int first = 0; first < planes; first += 8) {
        const int last = planes - first < 8 ? planes - first : 8;
        for (int p = 0; p < last; ++p)
            columns[first + p] = 0;
        for (int group = 0; group < 8; ++group) {
            uint64_t bytes = 0;
            for (int i = 0; i < 8; ++i) {
                bytes |= static_cast<uint64_t>(magnitudes[8 * group + i] >> first & 0xFF) << (8 * i);
            }
            bytes = transposeBits<Arch>(bytes);
            for (int p = 0; p < last; ++p)
                columns[first + p] |= (bytes >> (8 * p) & 0xFF) << (8 * group);
        }
    }
    return planes;
}

/// Puts 64 values together from `planes` columns, each `stride` words apart, and the signs.
template <class Arch, class T>
void fromByteColumns(const uint64_t* columns, int64_t stride, int planes, uint64_t signs, T* values) {
    uint32_t magnitudes[64] = {};
    for (int first = 0; first < planes; first += 8) {
        const int last = planes - first < 8 ? planes - first : 8;
        for (int group = 0; group < 8; ++group) {
            uint64_t bytes = 0;
            for (int p = 0; p < last; ++p) {
                bytes |= (columns[(first + p) * stride] >> (8 * group) & 0xFF) << (8 * p);
            }
            bytes = transposeBits<Arch>(bytes);
            for (int i = 0; i < 8; ++i) {
                magnitudes[8 * group + i] |= static_cast<uint32_t>(bytes >> (8 * i) & 0xFF) << first;
            }
        }
    }
    for (int i = 0; i < 64; ++i) {
        const uint32_t negative = -static_cast<uint32_t>(signs >> i & 1);
        values[i] = static_cast<T>((magnitudes[i] ^ negative) - negative);
    }
}

}  // namespace dvq::kelt4::kernels
