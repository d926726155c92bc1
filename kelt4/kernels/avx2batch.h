#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "kelt4/kernels/attributes.h"
#include "kelt4/kernels/bitappender.h"
#include "kelt4/kernels/freshblocks.h"

namespace dvq::kelt4::kernels {

namespace {

/// The places of the ones of a byte.
struct BytePlaces {
    uint8_t entries[256][8] = {};

    constexpr BytePlaces() {
        for (unsigned value = 0; value < 256; ++value) {
            unsigned count = 0;
            for (uint8_t bit = 0; bit < 8; ++bit)
                if ((value >> bit & 1) != 0) entries[value][count++] = bit;
        }
    }
};
constexpr BytePlaces kBytePlaces;

/// The steps of BatchEncoder with AVX2 and BMI2.
struct Avx2Batch {
    /// Where coefficients become significant, counted in candidates, and a 0 for each that is negative.
    struct Places {
        size_t count;
        uint16_t places[kLargestBatch + kBlock];
        uint64_t positives[kBatchBlocks + 2];

        uint64_t first() const { return places[0]; }
        uint64_t last() const { return places[count - 1]; }
        uint64_t firstSign() const { return ~positives[0] & 1; }
    };

    KELT_INLINE static uint64_t extract(uint64_t value, uint64_t mask) { return _pext_u64(value, mask); }

    KELT_INLINE static __m256i load(const void* from) {
        return _mm256_loadu_si256(static_cast<const __m256i*>(from));
    }
    KELT_INLINE static void store(void* to, __m256i value) {
        _mm256_storeu_si256(static_cast<__m256i*>(to), value);
    }

    // ---- columns

    /// Of count values, a multiple of a block.
    static uint32_t greatestMagnitude(const int16_t* values, size_t count) {
        __m256i greatest[2] = {};
        for (size_t i = 0; i < count; i += 32) {
            greatest[0] = _mm256_max_epu16(greatest[0], _mm256_abs_epi16(load(values + i)));
            greatest[1] = _mm256_max_epu16(greatest[1], _mm256_abs_epi16(load(values + i + 16)));
        }
        alignas(32) uint16_t lanes[16];
        store(lanes, _mm256_max_epu16(greatest[0], greatest[1]));
        return greatestOf(lanes);
    }
    static uint32_t greatestMagnitude(const int32_t* values, size_t count) {
        __m256i greatest[2] = {};
        for (size_t i = 0; i < count; i += 16) {
            greatest[0] = _mm256_max_epu32(greatest[0], _mm256_abs_epi32(load(values + i)));
            greatest[1] = _mm256_max_epu32(greatest[1], _mm256_abs_epi32(load(values + i + 8)));
        }
        alignas(32) uint32_t lanes[8];
        store(lanes, _mm256_max_epu32(greatest[0], greatest[1]));
        return greatestOf(lanes);
    }

    /// The bits of planes (at least 1) of the magnitudes of 64 values, a word for each plane, stride words
    /// apart. False when all values are 0.
    KELT_INLINE static bool toColumns(const int16_t* values, int planes, uint64_t* columns, int64_t stride,
                                      uint64_t& signs) {
        __m256i v[4], magnitude[4];
        for (int i = 0; i < 4; ++i) {
            v[i] = load(values + 16 * i);
            magnitude[i] = _mm256_abs_epi16(v[i]);
        }
        const __m256i any = _mm256_or_si256(_mm256_or_si256(v[0], v[1]), _mm256_or_si256(v[2], v[3]));
        if (_mm256_testz_si256(any, any)) return false;
        signs = topBits(packOrdered(v[0], v[1]), packOrdered(v[2], v[3]));
        if (planes > 8) {
            byteColumns(packBytes(_mm256_srli_epi16(magnitude[0], 8), _mm256_srli_epi16(magnitude[1], 8)),
                        packBytes(_mm256_srli_epi16(magnitude[2], 8), _mm256_srli_epi16(magnitude[3], 8)),
                        planes - 8, columns + 8 * stride, stride);
        }
        const __m256i mask = _mm256_set1_epi16(0xFF);
        byteColumns(packBytes(_mm256_and_si256(magnitude[0], mask), _mm256_and_si256(magnitude[1], mask)),
                    packBytes(_mm256_and_si256(magnitude[2], mask), _mm256_and_si256(magnitude[3], mask)),
                    planes < 8 ? planes : 8, columns, stride);
        return true;
    }
    KELT_INLINE static bool toColumns(const int32_t* values, int planes, uint64_t* columns, int64_t stride,
                                      uint64_t& signs) {
        __m256i magnitude[8];
        __m256i any = _mm256_setzero_si256();
        uint64_t negative = 0;
        for (int i = 0; i < 8; ++i) {
            const __m256i v = load(values + 8 * i);
            magnitude[i] = _mm256_abs_epi32(v);
            any = _mm256_or_si256(any, v);
            negative |= static_cast<uint64_t>(_mm256_movemask_ps(_mm256_castsi256_ps(v))) << (8 * i);
        }
        if (_mm256_testz_si256(any, any)) return false;
        signs = negative;
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
            byteColumns(bytes[0], bytes[1], planes - first < 8 ? planes - first : 8, columns + first * stride,
                        stride);
        }
        return true;
    }

    // ---- runs

    static uint64_t findFresh(const uint64_t* column, BatchBlocks& blocks, FreshBlocks& fresh) {
        return kernels::findFresh<Avx2Batch>(column, blocks, fresh);
    }
    static void collect(const FreshBlocks& fresh, Places& places) {
        uint16_t* place = places.places;
        BitAppender positives{places.positives, 0, 0};
        for (size_t i = 0; i < fresh.count; ++i) {
            const uint64_t bits = fresh.bits[i];
            const auto count = static_cast<unsigned>(__builtin_popcountll(bits));
            const uint64_t ones = _pext_u64(bits, fresh.candidates[i]);
            if (count <= 4)
                writeFewPlaces(ones, fresh.first[i], place);
            else
                writePlaces(ones, static_cast<unsigned>(fresh.first[i]), place);
            positives.append(_pext_u64(~fresh.signs[i], bits), count);
            place += count;
        }
        *positives.current = positives.accumulator;
        places.count = static_cast<size_t>(place - places.places);
    }

    /// Appends the codes of the runs between the places, each with its sign.
    static void appendRuns(CodeAppender& sink, const Places& all) {
        CodeAppender bits = sink;
        const uint16_t* const places = all.places;
        const size_t count = all.count;
        const auto* const signBytes = reinterpret_cast<const uint8_t*>(all.positives);
        size_t i = 1;
        for (; i + 8 <= count; i += 8)
            appendEight(bits, places + i, signBytes + i / 8, _mm256_set1_epi32(-1));
        if (i < count) {
            const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
            appendEight(bits, places + i, signBytes + i / 8,
                        _mm256_cmpgt_epi32(_mm256_set1_epi32(static_cast<int>(count - i)), lanes));
        }
        sink = bits;
    }

private:
    /// Writes the places of the ones, the first bit being at place `first`. Up to 64 places from `to` on may
    /// be written whatever their number.
    KELT_INLINE static void writePlaces(uint64_t ones, unsigned first, uint16_t* to) {
        for (unsigned byte = 0; byte < 8; ++byte) {
            const __m128i places = _mm_cvtepu8_epi16(_mm_loadl_epi64(
                reinterpret_cast<const __m128i*>(kBytePlaces.entries[ones >> (8 * byte) & 0xFF])));
            const auto before = static_cast<unsigned>(__builtin_popcountll(_bzhi_u64(ones, 8 * byte)));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(to + before),
                             _mm_add_epi16(places, _mm_set1_epi16(static_cast<int16_t>(first + 8 * byte))));
        }
    }

    /// The same for up to 4 ones.
    KELT_INLINE static void writeFewPlaces(uint64_t ones, uint64_t first, uint16_t* to) {
        uint64_t places = first * 0x0001000100010001;
        for (unsigned i = 0; i < 4; ++i) {
            places += _tzcnt_u64(ones) << (16 * i);
            ones = _blsr_u64(ones);
        }
        __builtin_memcpy(to, &places, sizeof(places));
    }

    template <class Lane, size_t kCount>
    KELT_INLINE static uint32_t greatestOf(const Lane (&lanes)[kCount]) {
        Lane greatest = 0;
        for (const Lane lane : lanes)
            greatest = lane > greatest ? lane : greatest;
        return greatest;
    }
    KELT_INLINE static __m256i packOrdered(__m256i a, __m256i b) {
        return _mm256_permute4x64_epi64(_mm256_packs_epi16(a, b), 0xD8);
    }
    KELT_INLINE static __m256i packBytes(__m256i a, __m256i b) {
        return _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8);
    }
    /// The top bits of 64 bytes.
    KELT_INLINE static uint64_t topBits(__m256i a, __m256i b) {
        return static_cast<uint32_t>(_mm256_movemask_epi8(a)) |
               static_cast<uint64_t>(static_cast<uint32_t>(_mm256_movemask_epi8(b))) << 32;
    }
    /// The low count bits of 64 bytes as columns, moved to the top one after another.
    KELT_INLINE static void byteColumns(__m256i a, __m256i b, int count, uint64_t* columns, int64_t stride) {
        const __m128i shift = _mm_cvtsi32_si128(8 - count);
        a = _mm256_sll_epi16(a, shift);
        b = _mm256_sll_epi16(b, shift);
        for (int p = count - 1; p >= 0; --p) {
            columns[p * stride] = topBits(a, b);
            a = _mm256_add_epi8(a, a);
            b = _mm256_add_epi8(b, b);
        }
    }

    /// Codes of the runs before eight places, those of the lanes that `used` selects.
    KELT_INLINE static void appendEight(CodeAppender& bits, const uint16_t* places, const uint8_t* positives,
                                        __m256i used) {
        const __m256i one = _mm256_set1_epi32(1);
        const __m128i distance = _mm_sub_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(places)),
                                               _mm_loadu_si128(reinterpret_cast<const __m128i*>(places - 1)));
        const __m256i run = _mm256_sub_epi32(_mm256_cvtepu16_epi32(distance), one);
        uint16_t signs;
        __builtin_memcpy(&signs, positives, sizeof(signs));
        const __m256i positive = _mm256_and_si256(
            _mm256_srlv_epi32(_mm256_set1_epi32(signs), _mm256_setr_epi32(1, 2, 3, 4, 5, 6, 7, 8)), one);

        // A run from 1 on: as many zeros as it has bits, 1, its bits below the highest, sign. That is 2 run +
        // 1 moved by the number of its bits, with the sign in place of the highest. A run of 0 is 1, sign: 3
        // not moved, with the sign likewise.
        const __m256i none = _mm256_cmpeq_epi32(run, _mm256_setzero_si256());
        const __m256i exponent = _mm256_srli_epi32(_mm256_castps_si256(_mm256_cvtepi32_ps(run)), 23);
        const __m256i length = _mm256_subs_epu16(exponent, _mm256_set1_epi32(126));
        const __m256i doubled = _mm256_sub_epi32(_mm256_add_epi32(run, run), _mm256_add_epi32(none, none));
        const __m256i signPlace = _mm256_sub_epi32(_mm256_add_epi32(length, length), none);
        const __m256i code =
            _mm256_and_si256(_mm256_xor_si256(_mm256_sllv_epi32(_mm256_add_epi32(doubled, one), length),
                                              _mm256_sllv_epi32(positive, signPlace)),
                             used);
        const __m256i bitsOfCode = _mm256_and_si256(_mm256_add_epi32(signPlace, one), used);

        const __m256i low = _mm256_set1_epi64x(0xFFFFFFFF);
        const __m256i firstBits = _mm256_and_si256(bitsOfCode, low);
        const __m256i pairs = _mm256_or_si256(_mm256_and_si256(code, low),
                                              _mm256_sllv_epi64(_mm256_srli_epi64(code, 32), firstBits));
        const __m256i pairBits = _mm256_add_epi64(firstBits, _mm256_srli_epi64(bitsOfCode, 32));
        // Four codes to a word, which hardly ever do not fit.
        const __m256i four =
            _mm256_or_si256(pairs, _mm256_sllv_epi64(_mm256_unpackhi_epi64(pairs, pairs), pairBits));
        const __m256i fourBits = _mm256_add_epi64(pairBits, _mm256_unpackhi_epi64(pairBits, pairBits));
        const auto firstCount = static_cast<uint64_t>(_mm256_extract_epi64(fourBits, 0));
        const auto secondCount = static_cast<uint64_t>(_mm256_extract_epi64(fourBits, 2));
        if (firstCount <= CodeAppender::kMaxBits && secondCount <= CodeAppender::kMaxBits) [[likely]] {
            bits.append(static_cast<uint64_t>(_mm256_extract_epi64(four, 0)), firstCount);
            bits.append(static_cast<uint64_t>(_mm256_extract_epi64(four, 2)), secondCount);
            return;
        }
        alignas(32) uint64_t words[4], counts[4];
        store(words, pairs);
        store(counts, pairBits);
        for (int i = 0; i < 4; ++i)
            bits.append(words[i], counts[i]);
    }
};

}  // namespace

}  // namespace dvq::kelt4::kernels
