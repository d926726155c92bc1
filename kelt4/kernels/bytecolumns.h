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

/// Sixteen bytes of one processor register.
using Bytes16 = uint8_t __attribute__((vector_size(16)));
using Words16 = uint16_t __attribute__((vector_size(16)));
using Longs16 = uint32_t __attribute__((vector_size(16)));
using Lines16 = uint64_t __attribute__((vector_size(16)));

/// The bytes of a and b in turn: those of the first or of the second half.
KELT_INLINE Bytes16 interleaveLow(Bytes16 a, Bytes16 b) {
    return __builtin_shufflevector(a, b, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
}
KELT_INLINE Bytes16 interleaveHigh(Bytes16 a, Bytes16 b) {
    return __builtin_shufflevector(a, b, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31);
}

KELT_INLINE Words16 interleaveWordsLow(Words16 a, Words16 b) {
    return __builtin_shufflevector(a, b, 0, 8, 1, 9, 2, 10, 3, 11);
}
KELT_INLINE Words16 interleaveWordsHigh(Words16 a, Words16 b) {
    return __builtin_shufflevector(a, b, 4, 12, 5, 13, 6, 14, 7, 15);
}

/// transposeBits() of both halves.
KELT_INLINE Bytes16 transposeBitsTwice(Bytes16 bytes) {
    auto x = (Lines16)bytes;
    Lines16 t = (x ^ x >> 7) & 0x00AA00AA00AA00AA;
    x ^= t ^ t << 7;
    t = (x ^ x >> 14) & 0x0000CCCC0000CCCC;
    x ^= t ^ t << 14;
    t = (x ^ x >> 28) & 0x00000000F0F0F0F0;
    return (Bytes16)(x ^ t ^ t << 28);
}

/// The bytes of 64 values, in order, from eight columns: bit p of a byte comes from column p.
KELT_INLINE void bytesOfColumns(const uint64_t* columns, Bytes16 (&bytes)[4]) {
    Bytes16 column[4];
    __builtin_memcpy(column, columns, sizeof(column));
    // Byte g of every column goes to the eight bytes of group g: columns 0 and 4, 1 and 5 and so on first.
    Bytes16 pairs[4], even[2], odd[2];
    pairs[0] = interleaveLow(column[0], column[2]);
    pairs[1] = interleaveHigh(column[0], column[2]);
    pairs[2] = interleaveLow(column[1], column[3]);
    pairs[3] = interleaveHigh(column[1], column[3]);
    even[0] = interleaveLow(pairs[0], pairs[2]);
    even[1] = interleaveHigh(pairs[0], pairs[2]);
    odd[0] = interleaveLow(pairs[1], pairs[3]);
    odd[1] = interleaveHigh(pairs[1], pairs[3]);
    for (int half = 0; half < 2; ++half) {
        bytes[2 * half] = transposeBitsTwice(interleaveLow(even[half], odd[half]));
        bytes[2 * half + 1] = transposeBitsTwice(interleaveHigh(even[half], odd[half]));
    }
}

/// Bits 8 g to 8 g + 7 of a word as eight elements of all ones or zeros.
KELT_INLINE Words16 spreadByte(uint64_t word, int g) {
    const auto byte = static_cast<uint16_t>(word >> (8 * g) & 0xFF);
    const Words16 bit = {1, 2, 4, 8, 16, 32, 64, 128};
    const Words16 all = {byte, byte, byte, byte, byte, byte, byte, byte};
    return (Words16)((all & bit) == bit);
}

/// Puts 64 values together from `planes` columns and the signs. The columns up to a multiple of eight are
/// there.
inline void fromByteColumns(const uint64_t* columns, int planes, uint64_t signs, int16_t* values) {
    Bytes16 low[4], high[4] = {};
    bytesOfColumns(columns, low);
    if (planes > 8) bytesOfColumns(columns + 8, high);
    for (int i = 0; i < 8; ++i) {
        const Bytes16 a = low[i / 2], b = high[i / 2];
        const auto magnitude = (Words16)(i % 2 == 0 ? interleaveLow(a, b) : interleaveHigh(a, b));
        const Words16 negative = spreadByte(signs, i);
        const Words16 value = (magnitude ^ negative) - negative;
        __builtin_memcpy(values + 8 * i, &value, sizeof(value));
    }
}
inline void fromByteColumns(const uint64_t* columns, int planes, uint64_t signs, int32_t* values) {
    Bytes16 bytes[4][4] = {};
    for (int i = 0; 8 * i < planes; ++i)
        bytesOfColumns(columns + 8 * i, bytes[i]);
    for (int i = 0; i < 8; ++i) {
        const Bytes16 a = bytes[0][i / 2], b = bytes[1][i / 2], c = bytes[2][i / 2], d = bytes[3][i / 2];
        const Bytes16 first = i % 2 == 0 ? interleaveLow(a, b) : interleaveHigh(a, b);
        const Bytes16 second = i % 2 == 0 ? interleaveLow(c, d) : interleaveHigh(c, d);
        const auto negative = (Bytes16)spreadByte(signs, i);
        for (int half = 0; half < 2; ++half) {
            const auto low = (Words16)first, high = (Words16)second;
            const auto magnitude =
                (Longs16)(half == 0 ? interleaveWordsLow(low, high) : interleaveWordsHigh(low, high));
            const auto sign =
                (Longs16)(half == 0 ? interleaveWordsLow((Words16)negative, (Words16)negative)
                                    : interleaveWordsHigh((Words16)negative, (Words16)negative));
            const Longs16 value = (magnitude ^ sign) - sign;
            __builtin_memcpy(values + 8 * i + 4 * half, &value, sizeof(value));
        }
    }
}

}  // namespace dvq::kelt4::kernels
