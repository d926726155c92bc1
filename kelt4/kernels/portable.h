#pragma once

#include <cstdint>
#include <type_traits>

#include "kelt4/kernels/bytecolumns.h"
#include "kelt4/kernels/placetable.h"
#include "kelt4/kernels/rowloops.h"

namespace dvq::kelt4::kernels {

namespace {

/// Plain C++ with 16-byte vectors where the compiler has them.
struct Portable : RowLoops {
    using Vector16 = int16_t __attribute__((vector_size(16)));
    using Vector32 = int32_t __attribute__((vector_size(16)));
    using UnsignedVector16 = uint16_t __attribute__((vector_size(16)));
    using UnsignedVector32 = uint32_t __attribute__((vector_size(16)));
    template <class T>
    using Vector = std::conditional_t<sizeof(T) == 2, Vector16, Vector32>;
    template <class T>
    using UnsignedVector = std::conditional_t<sizeof(T) == 2, UnsignedVector16, UnsignedVector32>;

    /// Whether there are registers enough for the decoding of two chunks at once.
    static constexpr bool kTwoAtOnce = false;
    static constexpr bool kFastDeposit = false;

    /// Moves the bits of value that mask selects together at the low end, halving distances step by step.
    static uint64_t extract(uint64_t value, uint64_t mask) {
        if (mask == ~uint64_t{0}) return value;
        value &= mask;
        uint64_t zerosRight = ~mask << 1;
        for (unsigned i = 0; i < 6; ++i) {
            const uint64_t odd = prefixParity(zerosRight);
            const uint64_t moving = odd & mask;
            mask = (mask ^ moving) | moving >> (1U << i);
            const uint64_t bits = value & moving;
            value = (value ^ bits) | bits >> (1U << i);
            zerosRight &= ~odd;
        }
        return value;
    }
    /// The inverse: spreads the low bits of value over the places that mask selects.
    KELT_INLINE static uint64_t deposit(uint64_t value, uint64_t mask) {
        return mask == ~uint64_t{0} ? value : kPlaceTable.deposit(value, mask);
    }
    KELT_INLINE static void deposit(uint64_t& first, uint64_t& second, uint64_t mask) {
        if (mask != ~uint64_t{0}) kPlaceTable.deposit(first, second, mask);
    }

    KELT_INLINE static void storeInterleaved(Vector16 evens, Vector16 odds, int16_t* to) {
        const auto first = interleaveWordsLow((Words16)evens, (Words16)odds);
        const auto second = interleaveWordsHigh((Words16)evens, (Words16)odds);
        __builtin_memcpy(to, &first, sizeof(first));
        __builtin_memcpy(to + 8, &second, sizeof(second));
    }
    KELT_INLINE static void storeInterleaved(Vector32 evens, Vector32 odds, int32_t* to) {
        const Vector32 first = __builtin_shufflevector(evens, odds, 0, 4, 1, 5);
        const Vector32 second = __builtin_shufflevector(evens, odds, 2, 6, 3, 7);
        __builtin_memcpy(to, &first, sizeof(first));
        __builtin_memcpy(to + 4, &second, sizeof(second));
    }

    template <class T>
    static int toColumns(const T* values, uint64_t* columns, uint64_t& signs) {
        return toByteColumns<Portable>(values, columns, signs);
    }
    template <class T>
    static void fromColumns(const uint64_t* columns, int planes, uint64_t signs, T* values) {
        fromByteColumns(columns, planes, signs, values);
    }

private:
    /// Bit i is the parity of bits 0 to i.
    static uint64_t prefixParity(uint64_t x) {
        for (unsigned shift = 1; shift < 64; shift *= 2)
            x ^= x << shift;
        return x;
    }
};

}  // namespace

}  // namespace dvq::kelt4::kernels
