#include <immintrin.h>

#include <type_traits>

#include "kelt4/kernel_list.h"
#include "kelt4/kernels/framedecoder.h"
#include "kelt4/kernels/frameencoder.h"
#include "kelt4/kernels/rowloops.h"

namespace dvq::kelt4 {

namespace {

/// AVX2 with the parallel bit instructions of BMI2.
struct Avx2 : kernels::RowLoops {
    using Vector16 = int16_t __attribute__((vector_size(32)));
    using Vector32 = int32_t __attribute__((vector_size(32)));
    using UnsignedVector16 = uint16_t __attribute__((vector_size(32)));
    using UnsignedVector32 = uint32_t __attribute__((vector_size(32)));
    template <class T>
    using Vector = std::conditional_t<sizeof(T) == 2, Vector16, Vector32>;
    template <class T>
    using UnsignedVector = std::conditional_t<sizeof(T) == 2, UnsignedVector16, UnsignedVector32>;

    static constexpr bool kFastDeposit = true;

    KELT_INLINE static uint64_t extract(uint64_t value, uint64_t mask) { return _pext_u64(value, mask); }
    KELT_INLINE static uint64_t deposit(uint64_t value, uint64_t mask) { return _pdep_u64(value, mask); }
    KELT_INLINE static void deposit(uint64_t& first, uint64_t& second, uint64_t mask) {
        first = _pdep_u64(first, mask);
        second = _pdep_u64(second, mask);
    }

    KELT_INLINE static __m256i load(const void* from) {
        return _mm256_loadu_si256(static_cast<const __m256i*>(from));
    }
    KELT_INLINE static void store(void* to, __m256i value) {
        _mm256_storeu_si256(static_cast<__m256i*>(to), value);
    }

    // ---- rows

    static void split(const uint8_t* samples, int count, int16_t* low, int16_t* high) {
        int pair = 0;
        for (; 2 * pair + 32 <= count; pair += 16) {
            const __m256i v = load(samples + 2 * pair);
            store(low + pair, _mm256_and_si256(v, _mm256_set1_epi16(0xFF)));
            store(high + pair, _mm256_srli_epi16(v, 8));
        }
        RowLoops::split(samples, count, low, high, pair);
    }
    template <class S>
    static void split(const S* samples, int count, int16_t* low, int16_t* high) {
        static_assert(sizeof(S) == 2);
        int pair = 0;
        for (; 2 * pair + 32 <= count; pair += 16) {
            const __m256i a = load(samples + 2 * pair);
            const __m256i b = load(samples + 2 * pair + 16);
            const __m256i evens = _mm256_packs_epi32(_mm256_srai_epi32(_mm256_slli_epi32(a, 16), 16),
                                                     _mm256_srai_epi32(_mm256_slli_epi32(b, 16), 16));
            const __m256i odds = _mm256_packs_epi32(_mm256_srai_epi32(a, 16), _mm256_srai_epi32(b, 16));
            store(low + pair, _mm256_permute4x64_epi64(evens, 0xD8));
            store(high + pair, _mm256_permute4x64_epi64(odds, 0xD8));
        }
        RowLoops::split(samples, count, low, high, pair);
    }
    static void split(const uint16_t* samples, int count, int32_t* low, int32_t* high) {
        int pair = 0;
        for (; 2 * pair + 16 <= count; pair += 8) {
            const __m256i v = load(samples + 2 * pair);
            store(low + pair, _mm256_and_si256(v, _mm256_set1_epi32(0xFFFF)));
            store(high + pair, _mm256_srli_epi32(v, 16));
        }
        RowLoops::split(samples, count, low, high, pair);
    }
    static void split(const int32_t* samples, int count, int32_t* low, int32_t* high) {
        int pair = 0;
        for (; 2 * pair + 16 <= count; pair += 8) {
            const __m256 a = _mm256_castsi256_ps(load(samples + 2 * pair));
            const __m256 b = _mm256_castsi256_ps(load(samples + 2 * pair + 8));
            const __m256i evens = _mm256_castps_si256(_mm256_shuffle_ps(a, b, 0x88));
            const __m256i odds = _mm256_castps_si256(_mm256_shuffle_ps(a, b, 0xDD));
            store(low + pair, _mm256_permute4x64_epi64(evens, 0xD8));
            store(high + pair, _mm256_permute4x64_epi64(odds, 0xD8));
        }
        RowLoops::split(samples, count, low, high, pair);
    }

    template <class T>
    static void merge(const T* low, const T* high, int count, T* samples) {
        constexpr int kLanes = 32 / sizeof(T);
        for (int i = 0; 2 * i < count; i += kLanes) {
            const __m256i a = load(low + i);
            const __m256i b = load(high + i);
            const __m256i first = sizeof(T) == 2 ? _mm256_unpacklo_epi16(a, b) : _mm256_unpacklo_epi32(a, b);
            const __m256i second = sizeof(T) == 2 ? _mm256_unpackhi_epi16(a, b) : _mm256_unpackhi_epi32(a, b);
            store(samples + 2 * i, _mm256_permute2x128_si256(first, second, 0x20));
            store(samples + 2 * i + kLanes, _mm256_permute2x128_si256(first, second, 0x31));
        }
    }

    template <class V>
    KELT_INLINE static void storeInterleaved(V evens, V odds, void* to) {
        const auto a = (__m256i)evens, b = (__m256i)odds;
        constexpr bool kShort = sizeof(evens[0]) == 2;
        const __m256i first = kShort ? _mm256_unpacklo_epi16(a, b) : _mm256_unpacklo_epi32(a, b);
        const __m256i second = kShort ? _mm256_unpackhi_epi16(a, b) : _mm256_unpackhi_epi32(a, b);
        store(to, _mm256_permute2x128_si256(first, second, 0x20));
        store(static_cast<__m256i*>(to) + 1, _mm256_permute2x128_si256(first, second, 0x31));
    }

    /// Bytes offset, offset + 3, ... of 48 bytes.
    KELT_INLINE static __m128i everyThird(const __m128i (&bytes)[3], int offset) {
        __m128i result = _mm_setzero_si128();
        for (int part = 0; part < 3; ++part) {
            alignas(16) int8_t places[16];
            for (int i = 0; i < 16; ++i) {
                const int from = 3 * i + offset - 16 * part;
                places[i] = static_cast<int8_t>(from >= 0 && from < 16 ? from : -1);
            }
            result = _mm_or_si128(
                result, _mm_shuffle_epi8(bytes[part], _mm_load_si128(reinterpret_cast<__m128i*>(places))));
        }
        return result;
    }

    static void convertColour(const uint8_t* pixels, int count, int16_t* y, int16_t* u, int16_t* v) {
        int i = 0;
        for (; i + 16 <= count; i += 16) {
            __m128i bytes[3];
            for (int part = 0; part < 3; ++part) {
                bytes[part] =
                    _mm_loadu_si128(reinterpret_cast<const __m128i*>(pixels + 3 * int64_t{i} + 16 * part));
            }
            const __m256i red = _mm256_cvtepu8_epi16(everyThird(bytes, 0));
            const __m256i green = _mm256_cvtepu8_epi16(everyThird(bytes, 1));
            const __m256i blue = _mm256_cvtepu8_epi16(everyThird(bytes, 2));
            const __m256i sum = _mm256_add_epi16(_mm256_add_epi16(red, blue), _mm256_slli_epi16(green, 1));
            store(y + i, _mm256_srli_epi16(sum, 2));
            store(u + i, _mm256_sub_epi16(red, green));
            store(v + i, _mm256_sub_epi16(blue, green));
        }
        RowLoops::convertColour(pixels, count, y, u, v, i);
    }

    // ---- columns

    static int toColumns(const int16_t* values, uint64_t* columns, uint64_t& signs) {
        __m256i v[4], magnitude[4];
        for (int i = 0; i < 4; ++i) {
            v[i] = load(values + 16 * i);
            magnitude[i] = _mm256_abs_epi16(v[i]);
        }
        const __m256i any = _mm256_or_si256(_mm256_or_si256(magnitude[0], magnitude[1]),
                                            _mm256_or_si256(magnitude[2], magnitude[3]));
        if (_mm256_testz_si256(any, any)) return 0;
        const __m128i any8 = _mm_or_si128(_mm256_castsi256_si128(any), _mm256_extracti128_si256(any, 1));
        const auto any4 = static_cast<uint64_t>(_mm_cvtsi128_si64(any8) | _mm_extract_epi64(any8, 1));
        const auto any2 = static_cast<uint32_t>(any4 | any4 >> 32);
        const int planes = 32 - __builtin_clz((any2 | any2 >> 16) & 0xFFFF);
        signs = signBits(packOrdered(v[0], v[1]), packOrdered(v[2], v[3]));
        const __m256i mask = _mm256_set1_epi16(0xFF);
        byteColumns(packBytes(_mm256_and_si256(magnitude[0], mask), _mm256_and_si256(magnitude[1], mask)),
                    packBytes(_mm256_and_si256(magnitude[2], mask), _mm256_and_si256(magnitude[3], mask)), 8,
                    columns);
        if (planes > 8) {
            byteColumns(packBytes(_mm256_srli_epi16(magnitude[0], 8), _mm256_srli_epi16(magnitude[1], 8)),
                        packBytes(_mm256_srli_epi16(magnitude[2], 8), _mm256_srli_epi16(magnitude[3], 8)), 8,
                        columns + 8);
        }
        return planes;
    }

    static int toColumns(const int32_t* values, uint64_t* columns, uint64_t& signs) {
        __m256i magnitude[8];
        __m256i any = _mm256_setzero_si256();
        uint64_t negative = 0;
        for (int i = 0; i < 8; ++i) {
            const __m256i v = load(values + 8 * i);
            magnitude[i] = _mm256_abs_epi32(v);
            any = _mm256_or_si256(any, magnitude[i]);
            negative |= static_cast<uint64_t>(_mm256_movemask_ps(_mm256_castsi256_ps(v))) << (8 * i);
        }
        if (_mm256_testz_si256(any, any)) return 0;
        signs = negative;
        const __m128i any8 = _mm_or_si128(_mm256_castsi256_si128(any), _mm256_extracti128_si256(any, 1));
        const auto any4 = static_cast<uint64_t>(_mm_cvtsi128_si64(any8) | _mm_extract_epi64(any8, 1));
        const int planes = 32 - __builtin_clz(static_cast<uint32_t>(any4 | any4 >> 32));
        const __m256i mask = _mm256_set1_epi32(0xFF);
        const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
        for (int first = 0; first < planes; first += 8) {
            __m256i bytes[2];
            for (int half = 0; half < 2; ++half) {
                __m256i part[4];
                for (int i = 0; i < 4; ++i) {
                    part[i] = _mm256_and_si256(_mm256_srli_epi32(magnitude[4 * half + i], first), mask);
                }
                const __m256i packed = _mm256_packus_epi16(_mm256_packs_epi32(part[0], part[1]),
                                                           _mm256_packs_epi32(part[2], part[3]));
                bytes[half] = _mm256_permutevar8x32_epi32(packed, order);
            }
            const int count = planes - first < 8 ? planes - first : 8;
            byteColumns(bytes[0], bytes[1], count, columns + first);
        }
        return planes;
    }

    static void fromColumns(const uint64_t* columns, int planes, uint64_t signs, int16_t* values) {
        __m256i magnitude[4] = {};
        for (int p = planes - 1; p >= 0; --p)
            addColumn(columns[p], magnitude);
        for (int i = 0; i < 4; ++i) {
            const __m256i negative = spreadBits(signs, i);
            store(values + 16 * i, _mm256_sub_epi16(_mm256_xor_si256(magnitude[i], negative), negative));
        }
    }

    static void fromColumns(const uint64_t* columns, int planes, uint64_t signs, int32_t* values) {
        __m256i low[4] = {};
        __m256i high[4] = {};
        for (int p = planes - 1; p >= 16; --p)
            addColumn(columns[p], high);
        for (int p = planes < 16 ? planes - 1 : 15; p >= 0; --p)
            addColumn(columns[p], low);
        for (int i = 0; i < 4; ++i) {
            const __m256i negative = spreadBits(signs, i);
            const __m128i lowHalf[2] = {_mm256_castsi256_si128(low[i]), _mm256_extracti128_si256(low[i], 1)};
            const __m128i highHalf[2] = {_mm256_castsi256_si128(high[i]),
                                         _mm256_extracti128_si256(high[i], 1)};
            const __m128i signHalf[2] = {_mm256_castsi256_si128(negative),
                                         _mm256_extracti128_si256(negative, 1)};
            for (int half = 0; half < 2; ++half) {
                const __m256i magnitude =
                    _mm256_or_si256(_mm256_cvtepu16_epi32(lowHalf[half]),
                                    _mm256_slli_epi32(_mm256_cvtepu16_epi32(highHalf[half]), 16));
                const __m256i sign = _mm256_cvtepi16_epi32(signHalf[half]);
                store(values + 16 * i + 8 * half, _mm256_sub_epi32(_mm256_xor_si256(magnitude, sign), sign));
            }
        }
    }

private:
    /// Bits 16 i to 16 i + 15 of a word as 16 elements of all ones or zeros.
    KELT_INLINE static __m256i spreadBits(uint64_t word, int i) {
        const __m256i bit =
            _mm256_setr_epi16(1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048, 4096, 8192, 16384, -32768);
        const __m256i group =
            _mm256_shuffle_epi8(_mm256_set1_epi64x(static_cast<int64_t>(word)),
                                _mm256_set1_epi16(static_cast<int16_t>(0x0100 + 0x0202 * i)));
        return _mm256_cmpeq_epi16(_mm256_and_si256(group, bit), bit);
    }
    /// Doubles 64 magnitudes and adds the bits of a column.
    KELT_INLINE static void addColumn(uint64_t column, __m256i (&magnitude)[4]) {
        for (int i = 0; i < 4; ++i) {
            magnitude[i] =
                _mm256_sub_epi16(_mm256_add_epi16(magnitude[i], magnitude[i]), spreadBits(column, i));
        }
    }

    KELT_INLINE static __m256i packOrdered(__m256i a, __m256i b) {
        return _mm256_permute4x64_epi64(_mm256_packs_epi16(a, b), 0xD8);
    }
    KELT_INLINE static __m256i packBytes(__m256i a, __m256i b) {
        return _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8);
    }
    /// The top bits of 64 bytes.
    KELT_INLINE static uint64_t signBits(__m256i a, __m256i b) {
        return static_cast<uint32_t>(_mm256_movemask_epi8(a)) |
               static_cast<uint64_t>(static_cast<uint32_t>(_mm256_movemask_epi8(b))) << 32;
    }
    /// The low count bits of 64 bytes as columns, moved to the top one after another.
    KELT_INLINE static void byteColumns(__m256i a, __m256i b, int count, uint64_t* columns) {
        if (count < 8) {
            const __m128i shift = _mm_cvtsi32_si128(8 - count);
            a = _mm256_sll_epi16(a, shift);
            b = _mm256_sll_epi16(b, shift);
        }
        for (int p = count - 1; p >= 0; --p) {
            columns[p] = signBits(a, b);
            a = _mm256_add_epi8(a, a);
            b = _mm256_add_epi8(b, b);
        }
    }
};

}  // namespace

Kernel avx2Kernel() {
    return {"avx2", kernels::FrameEncoder<Avx2>::encode, kernels::FrameDecoder<Avx2>::decode};
}

}  // namespace dvq::kelt4
