#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "kelt4/kernels/attributes.h"
#include "kelt4/kernels/bitappender.h"
#include "kelt4/kernels/freshblocks.h"

namespace dvq::kelt4::kernels {

namespace {

/// The steps of BatchEncoder with AVX-512: F, BW, DQ, VBMI, VBMI2 and VPOPCNTDQ.
struct Avx512Batch {
    /// Where coefficients become significant, counted in candidates, times two; plus 1 for each that is
    /// negative.
    struct Places {
        size_t count;
        uint16_t places[kLargestBatch + kBlock];

        uint64_t first() const { return places[0] >> 1; }
        uint64_t last() const { return places[count - 1] >> 1; }
        uint64_t firstSign() const { return places[0] & 1; }
    };

    KELT_INLINE static uint64_t extract(uint64_t value, uint64_t mask) { return _pext_u64(value, mask); }

    // ---- columns

    /// Of count values, a multiple of a block.
    static uint32_t greatestMagnitude(const int16_t* values, size_t count) {
        __m512i greatest[2] = {};
        for (size_t i = 0; i < count; i += 64) {
            greatest[0] = _mm512_max_epu16(greatest[0], _mm512_abs_epi16(load(values + i)));
            greatest[1] = _mm512_max_epu16(greatest[1], _mm512_abs_epi16(load(values + i + 32)));
        }
        const __m512i all = _mm512_max_epu16(greatest[0], greatest[1]);
        return _mm512_reduce_max_epu32(
            _mm512_max_epu32(_mm512_srli_epi32(all, 16), _mm512_and_si512(all, _mm512_set1_epi32(0xFFFF))));
    }
    static uint32_t greatestMagnitude(const int32_t* values, size_t count) {
        __m512i greatest[2] = {};
        for (size_t i = 0; i < count; i += 32) {
            greatest[0] = _mm512_max_epu32(greatest[0], _mm512_abs_epi32(load(values + i)));
            greatest[1] = _mm512_max_epu32(greatest[1], _mm512_abs_epi32(load(values + i + 16)));
        }
        return _mm512_reduce_max_epu32(_mm512_max_epu32(greatest[0], greatest[1]));
    }

    /// The bits of planes (at least 1) of the magnitudes of 64 values, a word for each plane, stride words
    /// apart. False when all values are 0.
    KELT_INLINE static bool toColumns(const int16_t* values, int planes, uint64_t* columns, int64_t stride,
                                      uint64_t& signs) {
        const __m512i first = load(values), second = load(values + 32);
        const __m512i any = _mm512_or_si512(first, second);
        if (_mm512_test_epi32_mask(any, any) == 0) return false;
        signs = _mm512_kunpackd(_mm512_movepi16_mask(second), _mm512_movepi16_mask(first));
        const __m512i a = _mm512_abs_epi16(first), b = _mm512_abs_epi16(second);
        byteColumns(evenBytes(a, b), planes < 8 ? planes : 8, columns, stride);
        if (planes > 8)
            byteColumns(evenBytes(_mm512_srli_epi16(a, 8), _mm512_srli_epi16(b, 8)), planes - 8,
                        columns + 8 * stride, stride);
        return true;
    }
    KELT_INLINE static bool toColumns(const int32_t* values, int planes, uint64_t* columns, int64_t stride,
                                      uint64_t& signs) {
        __m512i magnitude[4];
        __m512i any = _mm512_setzero_si512();
        uint64_t negative = 0;
        for (int i = 0; i < 4; ++i) {
            const __m512i v = load(values + 16 * i);
            magnitude[i] = _mm512_abs_epi32(v);
            any = _mm512_or_si512(any, v);
            negative |= static_cast<uint64_t>(_mm512_movepi32_mask(v)) << (16 * i);
        }
        if (_mm512_test_epi32_mask(any, any) == 0) return false;
        signs = negative;
        for (int first = 0; first < planes; first += 8) {
            __m512i bytes = _mm512_setzero_si512();
            bytes = _mm512_inserti32x4(bytes, _mm512_cvtepi32_epi8(magnitude[0]), 0);
            bytes = _mm512_inserti32x4(bytes, _mm512_cvtepi32_epi8(magnitude[1]), 1);
            bytes = _mm512_inserti32x4(bytes, _mm512_cvtepi32_epi8(magnitude[2]), 2);
            bytes = _mm512_inserti32x4(bytes, _mm512_cvtepi32_epi8(magnitude[3]), 3);
            byteColumns(bytes, planes - first < 8 ? planes - first : 8, columns + first * stride, stride);
            for (__m512i& part : magnitude)
                part = _mm512_srli_epi32(part, 8);
        }
        return true;
    }

    // ---- runs

    /// What findFresh() of freshblocks.h does, eight blocks at a time.
    static uint64_t findFresh(const uint64_t* column, BatchBlocks& blocks, FreshBlocks& fresh) {
        __m512i before = _mm512_setzero_si512();
        size_t used = 0;
        for (size_t b = 0; b < blocks.count; b += 8) {
            const size_t left = blocks.count - b;
            const auto lanes = static_cast<__mmask8>(left < 8 ? (1U << left) - 1 : 0xFF);
            const __m512i bits = _mm512_maskz_loadu_epi64(lanes, column + b);
            const __m512i above = _mm512_maskz_loadu_epi64(lanes, blocks.above + b);
            const __m512i candidates = _mm512_maskz_andnot_epi64(lanes, above, _mm512_set1_epi64(-1));
            const __m512i found = _mm512_and_si512(bits, candidates);
            _mm512_mask_storeu_epi64(blocks.above + b, lanes, _mm512_or_si512(above, bits));

            // Candidates up to and with each block.
            const __m512i zero = _mm512_setzero_si512();
            const __m512i counts = _mm512_popcnt_epi64(candidates);
            __m512i sums = _mm512_add_epi64(counts, _mm512_alignr_epi64(counts, zero, 7));
            sums = _mm512_add_epi64(sums, _mm512_alignr_epi64(sums, zero, 6));
            sums = _mm512_add_epi64(sums, _mm512_alignr_epi64(sums, zero, 4));
            const __m512i first = _mm512_add_epi64(_mm512_add_epi64(before, _mm512_sub_epi64(sums, counts)),
                                                   _mm512_maskz_loadu_epi64(lanes, blocks.omitted + b));
            before = _mm512_add_epi64(before, _mm512_permutexvar_epi64(_mm512_set1_epi64(7), sums));

            const __mmask8 some = _mm512_test_epi64_mask(found, found);
            store(fresh.bits + used, _mm512_maskz_compress_epi64(some, found));
            store(fresh.candidates + used, _mm512_maskz_compress_epi64(some, candidates));
            store(fresh.first + used, _mm512_maskz_compress_epi64(some, first));
            store(fresh.signs + used,
                  _mm512_maskz_compress_epi64(some, _mm512_maskz_loadu_epi64(lanes, blocks.signs + b)));
            used += static_cast<unsigned>(__builtin_popcount(some));
        }
        fresh.count = used;
        return static_cast<uint64_t>(_mm_cvtsi128_si64(_mm512_castsi512_si128(before)));
    }

    static void collect(const FreshBlocks& fresh, Places& places) {
        uint16_t* place = places.places;
        for (size_t i = 0; i < fresh.count; ++i) {
            const uint64_t candidates = fresh.candidates[i];
            const uint64_t ones = _pext_u64(fresh.bits[i], candidates);
            const uint64_t negative = _pext_u64(fresh.signs[i], candidates);
            const auto count = static_cast<unsigned>(__builtin_popcountll(ones));
            const __m512i doubled = _mm512_slli_epi16(byteNumbers(), 1);
            const __m512i bytes = _mm512_maskz_compress_epi8(
                ones, _mm512_mask_add_epi8(doubled, negative, doubled, _mm512_set1_epi8(1)));
            const __m512i first = _mm512_set1_epi16(static_cast<int16_t>(2 * fresh.first[i]));
            store(place, _mm512_add_epi16(_mm512_cvtepu8_epi16(_mm512_castsi512_si256(bytes)), first));
            if (count > 32)
                store(place + 32,
                      _mm512_add_epi16(_mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(bytes, 1)), first));
            place += count;
        }
        places.count = static_cast<size_t>(place - places.places);
    }

    /// Appends the codes of the runs between the places, each with its sign.
    static void appendRuns(CodeAppender& sink, const Places& all) {
        CodeAppender bits = sink;
        const uint16_t* const places = all.places;
        size_t i = 1;
        for (; i + 32 <= all.count; i += 32)
            appendCodes(bits, places + i, ~__mmask32{0});
        if (i < all.count) appendCodes(bits, places + i, (__mmask32{1} << (all.count - i)) - 1);
        sink = bits;
    }

private:
    KELT_INLINE static __m512i load(const void* from) { return _mm512_loadu_si512(from); }
    KELT_INLINE static void store(void* to, __m512i value) { _mm512_storeu_si512(to, value); }

    /// 0 to 63.
    KELT_INLINE static __m512i byteNumbers() {
        alignas(64) static constexpr auto kNumbers = [] {
            struct {
                uint8_t bytes[64];
            } numbers{};
            for (uint8_t i = 0; i < 64; ++i)
                numbers.bytes[i] = i;
            return numbers;
        }();
        return _mm512_load_si512(kNumbers.bytes);
    }
    /// The lower bytes of 64 words.
    KELT_INLINE static __m512i evenBytes(__m512i a, __m512i b) {
        return _mm512_permutex2var_epi8(a, _mm512_add_epi8(byteNumbers(), byteNumbers()), b);
    }
    /// The low count bits of 64 bytes as columns.
    KELT_INLINE static void byteColumns(__m512i bytes, int count, uint64_t* columns, int64_t stride) {
        __m512i bit = _mm512_set1_epi8(1);
        for (int p = 0; p < count; ++p) {
            columns[p * stride] = _mm512_test_epi8_mask(bytes, bit);
            bit = _mm512_add_epi8(bit, bit);
        }
    }

    /// How many bits the numbers 0 to 63 have.
    KELT_INLINE static __m512i bitLengths() {
        alignas(64) static constexpr auto kLengths = [] {
            struct {
                uint8_t bytes[64];
            } lengths{};
            for (unsigned i = 1; i < 64; ++i)
                lengths.bytes[i] = static_cast<uint8_t>(32 - __builtin_clz(i));
            return lengths;
        }();
        return _mm512_load_si512(kLengths.bytes);
    }

    /// Codes of the runs before 32 places, those of the lanes that `used` selects.
    ///
    /// A run from 1 on: as many zeros as it has bits, 1, its bits below the highest, sign. That is 2 run + 1
    /// moved by the number of its bits, with the sign in place of the highest. A run of 0 is 1, sign: 3 not
    /// moved, with the sign likewise.
    KELT_INLINE static void appendCodes(CodeAppender& bits, const uint16_t* places, __mmask32 used) {
        const __m512i one = _mm512_set1_epi16(1);
        const __m512i here = load(places);
        const __m512i run = _mm512_sub_epi16(
            _mm512_sub_epi16(_mm512_srli_epi16(here, 1), _mm512_srli_epi16(load(places - 1), 1)), one);
        const __mmask32 positive = _mm512_testn_epi16_mask(here, one);
        if (_mm512_mask_cmpgt_epu16_mask(used, run, _mm512_set1_epi16(63)) != 0) [[unlikely]] {
            appendLong(bits, _mm512_castsi512_si256(run), positive & 0xFFFF, used & 0xFFFF);
            appendLong(bits, _mm512_extracti64x4_epi64(run, 1), positive >> 16, used >> 16);
            return;
        }
        // Four codes of at most 13 bits to a word. The upper bytes of the lanes select the length of 0, which
        // is 0.
        const __m512i length = _mm512_permutexvar_epi8(run, bitLengths());
        const __mmask32 none = _mm512_testn_epi16_mask(run, run);
        const __m512i doubled = _mm512_add_epi16(_mm512_add_epi16(run, run), one);
        __m512i code = _mm512_sllv_epi16(_mm512_mask_mov_epi16(doubled, none, _mm512_set1_epi16(3)), length);
        const __m512i twice = _mm512_add_epi16(length, length);
        const __m512i signPlace = _mm512_mask_mov_epi16(twice, none, one);
        code = _mm512_mask_sub_epi16(code, positive, code, _mm512_sllv_epi16(one, signPlace));
        const __m512i codes = _mm512_maskz_mov_epi16(used, code);
        const __m512i lengths = _mm512_maskz_add_epi16(used, signPlace, one);

        const __m512i firstBits = _mm512_and_si512(lengths, _mm512_set1_epi32(0xFFFF));
        const __m512i pairs = _mm512_or_si512(_mm512_and_si512(codes, _mm512_set1_epi32(0xFFFF)),
                                              _mm512_sllv_epi32(_mm512_srli_epi32(codes, 16), firstBits));
        appendPairs(bits, pairs, _mm512_madd_epi16(lengths, one));
    }

    /// The same for any run of a batch, 16 of them.
    KELT_INLINE static void appendLong(CodeAppender& bits, __m256i runs, unsigned positive, unsigned used) {
        const auto lanes = static_cast<__mmask16>(used);
        const __m512i one = _mm512_set1_epi32(1);
        const __m512i run = _mm512_cvtepu16_epi32(runs);
        const __m512i length = _mm512_sub_epi32(_mm512_set1_epi32(32), _mm512_lzcnt_epi32(run));
        const __mmask16 none = _mm512_testn_epi32_mask(run, run);
        const __m512i doubled = _mm512_add_epi32(_mm512_add_epi32(run, run), one);
        __m512i code = _mm512_sllv_epi32(_mm512_mask_mov_epi32(doubled, none, _mm512_set1_epi32(3)), length);
        const __m512i signPlace = _mm512_mask_mov_epi32(_mm512_add_epi32(length, length), none, one);
        code = _mm512_mask_sub_epi32(code, static_cast<__mmask16>(positive), code,
                                     _mm512_sllv_epi32(one, signPlace));
        appendPairs(bits, _mm512_maskz_mov_epi32(lanes, code), _mm512_maskz_add_epi32(lanes, signPlace, one));
    }

    /// 16 pieces of up to 26 bits each.
    KELT_INLINE static void appendPairs(CodeAppender& bits, __m512i pieces, __m512i lengths) {
        const __m512i low = _mm512_set1_epi64(0xFFFFFFFF);
        const __m512i firstBits = _mm512_and_si512(lengths, low);
        const __m512i both = _mm512_or_si512(_mm512_and_si512(pieces, low),
                                             _mm512_sllv_epi64(_mm512_srli_epi64(pieces, 32), firstBits));
        alignas(64) uint64_t words[8], counts[8];
        store(words, both);
        store(counts, _mm512_add_epi64(firstBits, _mm512_srli_epi64(lengths, 32)));
        for (int i = 0; i < 8; ++i)
            bits.append(words[i], counts[i]);
    }
};

}  // namespace

}  // namespace dvq::kelt4::kernels
