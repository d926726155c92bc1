#pragma once

#include <cstdint>

#include "kelt4/kernels/attributes.h"

namespace dvq::kelt4::kernels {

/// Spreads bits over the set places of a byte: what a parallel deposit does, for processors without one, a
/// byte of the mask at a time.
struct PlaceTable {
    /// Of one byte of a mask.
    struct Byte {
        uint16_t first;  ///< its entries in `places`: one for each value of its set places
        uint8_t used;    ///< the bits of a value that it takes
        uint8_t count;   ///< and how many these are
    };

    Byte bytes[256] = {};
    /// The sum of 2^count over all bytes is 3^8.
    uint8_t places[6561] = {};

    constexpr PlaceTable() {
        unsigned next = 0;
        for (unsigned mask = 0; mask < 256; ++mask) {
            const auto count = static_cast<unsigned>(__builtin_popcount(mask));
            bytes[mask] = {static_cast<uint16_t>(next), static_cast<uint8_t>((1U << count) - 1),
                           static_cast<uint8_t>(count)};
            for (unsigned value = 0; value < 1U << count; ++value)
                places[next++] = spread(value, mask);
        }
    }

    /// The low bits of value at the places that mask selects.
    KELT_INLINE uint64_t deposit(uint64_t value, uint64_t mask) const {
        uint64_t result = 0;
        for (unsigned shift = 0; shift < 64; shift += 8) {
            const Byte byte = bytes[mask >> shift & 0xFF];
            result |= static_cast<uint64_t>(places[byte.first + (value & byte.used)]) << shift;
            value >>= byte.count;
        }
        return result;
    }

    /// deposit() of two values under one mask.
    KELT_INLINE void deposit(uint64_t& first, uint64_t& second, uint64_t mask) const {
        uint64_t a = first, b = second;
        first = second = 0;
        for (unsigned shift = 0; shift < 64; shift += 8) {
            const Byte byte = bytes[mask >> shift & 0xFF];
            first |= static_cast<uint64_t>(places[byte.first + (a & byte.used)]) << shift;
            second |= static_cast<uint64_t>(places[byte.first + (b & byte.used)]) << shift;
            a >>= byte.count;
            b >>= byte.count;
        }
    }

private:
    static constexpr uint8_t spread(unsigned value, unsigned mask) {
        unsigned result = 0;
        for (unsigned place = 1; place < 256; place *= 2) {
            if ((mask & place) == 0) continue;
            if ((value & 1) != 0) result |= place;
            value >>= 1;
        }
        return static_cast<uint8_t>(result);
    }
};

inline constexpr PlaceTable kPlaceTable;

}  // namespace dvq::kelt4::kernels
