#include <immintrin.h>

#include <type_traits>

#include "kelt4/kernel_list.h"
#include "kelt4/kernels/avx2batch.h"
#include "kelt4/kernels/batchencoder.h"
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

    /// Whether there are registers enough for the decoding of two chunks at once.
    static constexpr bool kTwoAtOnce = true;
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

    static void fromColumns(const uint64_t* columns, int planes, uint64_t signs, int16_t* values) {
        __m256i low[2], high[2] = {};
        bytesOfColumns(columns, low);
        if (planes > 8) bytesOfColumns(columns + 8, high);
        for (int i = 0; i < 2; ++i) {
            // Elements 0 to 7 and 16 to 23 of the bytes, and those between.
            putValues(_mm256_unpacklo_epi8(low[i], high[i]), signs, 4 * i, values + 32 * i);
            putValues(_mm256_unpackhi_epi8(low[i], high[i]), signs, 4 * i + 1, values + 32 * i + 8);
        }
    }

    static void fromColumns(const uint64_t* columns, int planes, uint64_t signs, int32_t* values) {
        alignas(32) uint16_t low[64], high[64];
        fromColumns(columns, planes, 0, reinterpret_cast<int16_t*>(low));
        if (planes > 16) fromColumns(columns + 16, planes - 16, 0, reinterpret_cast<int16_t*>(high));
        for (int i = 0; i < 8; ++i) {
            __m256i magnitude =
                _mm256_cvtepu16_epi32(_mm_load_si128(reinterpret_cast<const __m128i*>(low) + i));
            if (planes > 16) {
                const __m128i above = _mm_load_si128(reinterpret_cast<const __m128i*>(high) + i);
                magnitude = _mm256_or_si256(magnitude, _mm256_slli_epi32(_mm256_cvtepu16_epi32(above), 16));
            }
            const __m256i bit = _mm256_setr_epi32(1, 2, 4, 8, 16, 32, 64, 128);
            const __m256i group = _mm256_set1_epi32(static_cast<int>(signs >> (8 * i) & 0xFF));
            const __m256i negative = _mm256_cmpeq_epi32(_mm256_and_si256(group, bit), bit);
            store(values + 8 * i, _mm256_sub_epi32(_mm256_xor_si256(magnitude, negative), negative));
        }
    }

private:
    /// The bytes of 64 values in order from eight columns: bit p of a byte comes from column p.
    KELT_INLINE static void bytesOfColumns(const uint64_t* columns, __m256i (&bytes)[2]) {
        // Bytes of equal places come together: of two columns, of four, of all eight.
        const __m256i pairs = _mm256_setr_epi8(0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15, 0, 8, 1,
                                               9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15);
        const __m256i a = _mm256_shuffle_epi8(load(columns), pairs);
        const __m256i b = _mm256_shuffle_epi8(load(columns + 4), pairs);
        const __m256i first = _mm256_permute2x128_si256(a, b, 0x20);
        const __m256i second = _mm256_permute2x128_si256(a, b, 0x31);
        const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
        bytes[0] = transposeBits(_mm256_permutevar8x32_epi32(_mm256_unpacklo_epi16(first, second), order));
        bytes[1] = transposeBits(_mm256_permutevar8x32_epi32(_mm256_unpackhi_epi16(first, second), order));
    }
    /// In every eight bytes bit i of byte p becomes bit p of byte i.
    KELT_INLINE static __m256i transposeBits(__m256i x) {
        x = exchange<7>(x, 0x00AA00AA00AA00AA);
        x = exchange<14>(x, 0x0000CCCC0000CCCC);
        return exchange<28>(x, 0x00000000F0F0F0F0);
    }
    /// Exchanges bits with those that stand higher by a distance.
    template <int kDistance>
    KELT_INLINE static __m256i exchange(__m256i x, int64_t bits) {
        const __m256i differing =
            _mm256_and_si256(_mm256_xor_si256(x, _mm256_srli_epi64(x, kDistance)), _mm256_set1_epi64x(bits));
        return _mm256_xor_si256(x, _mm256_xor_si256(differing, _mm256_slli_epi64(differing, kDistance)));
    }
    /// Gives magnitudes their signs, eight of byte `group` of the signs and eight of the byte after the next,
    /// and stores them that far apart.
    KELT_INLINE static void putValues(__m256i magnitudes, uint64_t signs, int group, int16_t* values) {
        const __m128i bit = _mm_setr_epi16(1, 2, 4, 8, 16, 32, 64, 128);
        const __m256i bits = _mm256_broadcastsi128_si256(bit);
        const __m256i places = _mm256_setr_m128i(_mm_set1_epi16(static_cast<int16_t>(0xFF00 + group)),
                                                 _mm_set1_epi16(static_cast<int16_t>(0xFF00 + group + 2)));
        const __m256i bytes = _mm256_shuffle_epi8(_mm256_set1_epi64x(static_cast<int64_t>(signs)), places);
        const __m256i negative = _mm256_cmpeq_epi16(_mm256_and_si256(bytes, bits), bits);
        const __m256i signedValues = _mm256_sub_epi16(_mm256_xor_si256(magnitudes, negative), negative);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(values), _mm256_castsi256_si128(signedValues));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(values + 16), _mm256_extracti128_si256(signedValues, 1));
    }
};

}  // namespace

Kernel avx2Kernel() {
    return {"avx2", kernels::FrameEncoder<Avx2, kernels::BatchEncoder<kernels::Avx2Batch>>::encode,
            kernels::FrameDecoder<Avx2>::decode};
}

}  // namespace dvq::kelt4
