#include <immintrin.h>

#include <type_traits>

#include "kelt4/kernel_list.h"
#include "kelt4/kernels/avx512batch.h"
#include "kelt4/kernels/batchencoder.h"
#include "kelt4/kernels/frameencoder.h"
#include "kelt4/kernels/rowloops.h"

namespace dvq::kelt4 {

namespace {

/// Rows with AVX-512. The ends of rows are loaded by masks; what is stored may go a vector beyond them.
struct Avx512 {
    using Vector16 = int16_t __attribute__((vector_size(64)));
    using Vector32 = int32_t __attribute__((vector_size(64)));
    using UnsignedVector16 = uint16_t __attribute__((vector_size(64)));
    using UnsignedVector32 = uint32_t __attribute__((vector_size(64)));
    template <class T>
    using Vector = std::conditional_t<sizeof(T) == 2, Vector16, Vector32>;
    template <class T>
    using UnsignedVector = std::conditional_t<sizeof(T) == 2, UnsignedVector16, UnsignedVector32>;

    KELT_INLINE static __m512i load(const void* from) { return _mm512_loadu_si512(from); }
    KELT_INLINE static void store(void* to, __m512i value) { _mm512_storeu_si512(to, value); }

    // ---- rows

    static void split(const uint8_t* samples, int count, int16_t* low, int16_t* high) {
        for (int i = 0; i < count; i += 64) {
            const __m512i v = _mm512_maskz_loadu_epi8(first64(count - i), samples + i);
            store(low + i / 2, _mm512_and_si512(v, _mm512_set1_epi16(0xFF)));
            store(high + i / 2, _mm512_srli_epi16(v, 8));
        }
    }
    template <class S>
    static void split(const S* samples, int count, int16_t* low, int16_t* high) {
        static_assert(sizeof(S) == 2);
        const __m512i evens = numbers16(2, 0), odds = numbers16(2, 1);
        for (int i = 0; i < count; i += 64) {
            const uint64_t lanes = first64(count - i);
            const __m512i a = _mm512_maskz_loadu_epi16(static_cast<__mmask32>(lanes), samples + i);
            const __m512i b = _mm512_maskz_loadu_epi16(static_cast<__mmask32>(lanes >> 32), samples + i + 32);
            store(low + i / 2, _mm512_permutex2var_epi16(a, evens, b));
            store(high + i / 2, _mm512_permutex2var_epi16(a, odds, b));
        }
    }
    static void split(const uint16_t* samples, int count, int32_t* low, int32_t* high) {
        for (int i = 0; i < count; i += 32) {
            const __m512i v =
                _mm512_maskz_loadu_epi16(static_cast<__mmask32>(first64(count - i)), samples + i);
            store(low + i / 2, _mm512_and_si512(v, _mm512_set1_epi32(0xFFFF)));
            store(high + i / 2, _mm512_srli_epi32(v, 16));
        }
    }
    static void split(const int32_t* samples, int count, int32_t* low, int32_t* high) {
        const __m512i evens = numbers32(2, 0), odds = numbers32(2, 1);
        for (int i = 0; i < count; i += 32) {
            const auto lanes = static_cast<uint32_t>(first64(count - i));
            const __m512i a = _mm512_maskz_loadu_epi32(static_cast<__mmask16>(lanes), samples + i);
            const __m512i b = _mm512_maskz_loadu_epi32(static_cast<__mmask16>(lanes >> 16), samples + i + 16);
            store(low + i / 2, _mm512_permutex2var_epi32(a, evens, b));
            store(high + i / 2, _mm512_permutex2var_epi32(a, odds, b));
        }
    }

    /// Up to two vectors after the end are written too.
    static void merge(const int16_t* low, const int16_t* high, int count, int16_t* samples) {
        // Even lanes from the first, odd ones from the second operand.
        const __m512i first = interleaved16(0), second = interleaved16(16);
        for (int i = 0; 2 * i < count; i += 32) {
            const __m512i a = load(low + i), b = load(high + i);
            store(samples + 2 * i, _mm512_permutex2var_epi16(a, first, b));
            store(samples + 2 * i + 32, _mm512_permutex2var_epi16(a, second, b));
        }
    }
    static void merge(const int32_t* low, const int32_t* high, int count, int32_t* samples) {
        const __m512i first = interleaved32(0), second = interleaved32(8);
        for (int i = 0; 2 * i < count; i += 16) {
            const __m512i a = load(low + i), b = load(high + i);
            store(samples + 2 * i, _mm512_permutex2var_epi32(a, first, b));
            store(samples + 2 * i + 16, _mm512_permutex2var_epi32(a, second, b));
        }
    }

    /// See RowLoops.
    static void convertColour(const uint8_t* pixels, int count, int16_t* y, int16_t* u, int16_t* v) {
        for (int i = 0; i < count; i += 64) {
            const int left = 3 * (count - i);
            __m512i bytes[3];
            for (int part = 0; part < 3; ++part) {
                bytes[part] =
                    _mm512_maskz_loadu_epi8(first64(left - 64 * part), pixels + 3 * int64_t{i} + 64 * part);
            }
            const __m512i red = everyThird(bytes, 0), green = everyThird(bytes, 1),
                          blue = everyThird(bytes, 2);
            convertHalf(_mm512_castsi512_si256(red), _mm512_castsi512_si256(green),
                        _mm512_castsi512_si256(blue), y + i, u + i, v + i);
            convertHalf(_mm512_extracti64x4_epi64(red, 1), _mm512_extracti64x4_epi64(green, 1),
                        _mm512_extracti64x4_epi64(blue, 1), y + i + 32, u + i + 32, v + i + 32);
        }
    }

private:
    /// The first count lanes; none of them for less than 1.
    KELT_INLINE static uint64_t first64(int count) {
        return count >= 64 ? ~uint64_t{0} : count <= 0 ? 0 : (uint64_t{1} << count) - 1;
    }

    /// Lane i of so many holds index(i).
    template <class Lane, class Index>
    KELT_INLINE static __m512i lanes(Index index) {
        alignas(64) Lane values[64 / sizeof(Lane)];
        for (int i = 0; i < static_cast<int>(64 / sizeof(Lane)); ++i)
            values[i] = static_cast<Lane>(index(i));
        return _mm512_load_si512(values);
    }
    KELT_INLINE static __m512i numbers16(int step, int start) {
        return lanes<uint16_t>([=](int i) { return step * i + start; });
    }
    KELT_INLINE static __m512i numbers32(int step, int start) {
        return lanes<uint32_t>([=](int i) { return step * i + start; });
    }
    KELT_INLINE static __m512i interleaved16(int start) {
        return lanes<uint16_t>([=](int i) { return start + i / 2 + i % 2 * 32; });
    }
    KELT_INLINE static __m512i interleaved32(int start) {
        return lanes<uint32_t>([=](int i) { return start + i / 2 + i % 2 * 16; });
    }

    /// Bytes offset, offset + 3, ... of 192 bytes.
    KELT_INLINE static __m512i everyThird(const __m512i (&bytes)[3], int offset) {
        const __m512i places = lanes<uint8_t>([=](int i) { return 3 * i + offset; });
        // Places from 128 on come from the third part; a permutation looks at the low bits of a place only.
        const __m512i firstTwo = _mm512_permutex2var_epi8(bytes[0], places, bytes[1]);
        return _mm512_mask_permutexvar_epi8(firstTwo, _mm512_movepi8_mask(places), places, bytes[2]);
    }
    KELT_INLINE static void convertHalf(__m256i reds, __m256i greens, __m256i blues, int16_t* y, int16_t* u,
                                        int16_t* v) {
        const __m512i red = _mm512_cvtepu8_epi16(reds), green = _mm512_cvtepu8_epi16(greens);
        const __m512i blue = _mm512_cvtepu8_epi16(blues);
        const __m512i sum = _mm512_add_epi16(_mm512_add_epi16(red, blue), _mm512_slli_epi16(green, 1));
        store(y, _mm512_srli_epi16(sum, 2));
        store(u, _mm512_sub_epi16(red, green));
        store(v, _mm512_sub_epi16(blue, green));
    }
};

}  // namespace

Kernel avx512Kernel() {
    Kernel kernel = avx2Kernel();
    kernel.name = "avx512";
    kernel.encode = kernels::FrameEncoder<Avx512, kernels::BatchEncoder<kernels::Avx512Batch>>::encode;
    return kernel;
}

}  // namespace dvq::kelt4
