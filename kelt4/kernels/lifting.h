#pragma once

#include <cstdint>

#include "kelt4/kernels/attributes.h"

/// The 5/3 lifting steps on whole rows, with the vectors of an instruction set.
///
/// Everything in kernels/ is a template of an Arch that has internal linkage in the file of its instruction
/// set, so that no code compiled for one processor is ever linked into another's path.
namespace dvq::kelt4::kernels {

/// The least and greatest of values that 16-bit elements held; nobody asks for wider ones.
template <class Vector>
struct Extremes {
    Vector least{};
    Vector greatest{};

    KELT_INLINE void add(const Vector& values) {
        if constexpr (sizeof(values[0]) == 2) {
            least = least < values ? least : values;
            greatest = greatest > values ? greatest : values;
        }
    }
};

template <class Arch, class T>
struct Lifting {
    using Vector = typename Arch::template Vector<T>;
    using Unsigned = typename Arch::template UnsignedVector<T>;
    static constexpr int kLanes = static_cast<int>(sizeof(Vector) / sizeof(T));
    static constexpr int kSignBit = 8 * sizeof(T) - 1;

    KELT_INLINE static Unsigned load(const T* from) {
        Unsigned value;
        __builtin_memcpy(&value, from, sizeof(value));
        return value;
    }
    KELT_INLINE static void store(T* to, const Unsigned& value) {
        __builtin_memcpy(to, &value, sizeof(value));
    }

    /// a / 2 rounded half away from zero. Sums wrap, which only damaged streams reach.
    KELT_INLINE static Unsigned half(const Unsigned& a) {
        return (Unsigned)(((Vector)(a + ((Unsigned)((Vector)a >> kSignBit) + 1))) >> 1);
    }
    /// a / 4 rounded half away from zero.
    KELT_INLINE static Unsigned quarter(const Unsigned& a) {
        return (Unsigned)(((Vector)(a + ((Unsigned)((Vector)a >> kSignBit) + 2))) >> 2);
    }

    /// Lifts a deinterleaved row of count samples in place. Elements around both halves are written.
    static void forwardRow(T* low, T* high, int count) {
        const int lows = (count + 1) / 2;
        const int highs = count / 2;
        if (count % 2 == 0) low[lows] = low[lows - 1];
        for (int i = 0; i < highs; i += kLanes) {
            store(high + i, load(high + i) - half(load(low + i) + load(low + i + 1)));
        }
        mirrorDetails(high, count);
        for (int i = 0; i < lows; i += kLanes) {
            store(low + i, load(low + i) + quarter(load(high + i - 1) + load(high + i)));
        }
    }

    /// Undoes forwardRow() and interleaves the row. Elements around both halves and up to two vectors after
    /// the end of the row are written.
    static void inverseRow(T* low, T* high, int count, T* to, Extremes<Vector>& extremes) {
        const int lows = (count + 1) / 2;
        const int highs = count / 2;
        high[-1] = high[0];
        // The sample beyond the end is the last but one, or the last approximation again.
        high[highs] = count % 2 != 0 ? high[highs - 1] : high[highs - 2];
        if (count % 2 == 0) low[lows] = low[lows - 1];
        for (int i = 0; i < lows; i += kLanes) {
            const Unsigned detail = load(high + i);
            const Unsigned approximation = load(low + i);
            const Unsigned even = approximation - quarter(load(high + i - 1) + detail);
            const Unsigned nextEven = load(low + i + 1) - quarter(detail + load(high + i + 1));
            const Unsigned odd = detail + half(even + nextEven);
            extremes.add((Vector)approximation);
            extremes.add((Vector)detail);
            extremes.add((Vector)even);
            extremes.add((Vector)odd);
            Arch::storeInterleaved((Vector)even, (Vector)odd, to + 2 * i);
        }
    }

    /// odd -= half(above + below), then even (the row above) += quarter(previous + odd).
    static void forwardPair(T* even, T* odd, const T* below, const T* previous, int count) {
        for (int i = 0; i < count; i += kLanes) {
            const Unsigned approximation = load(even + i);
            const Unsigned detail = load(odd + i) - half(approximation + load(below + i));
            store(odd + i, detail);
            store(even + i, approximation + quarter(load(previous + i) + detail));
        }
    }
    static void addQuarter(T* even, const T* above, const T* below, int count) {
        for (int i = 0; i < count; i += kLanes) {
            store(even + i, load(even + i) + quarter(load(above + i) + load(below + i)));
        }
    }
    static void subtractQuarter(T* even, const T* above, const T* below, int count) {
        for (int i = 0; i < count; i += kLanes) {
            store(even + i, load(even + i) - quarter(load(above + i) + load(below + i)));
        }
    }
    /// to = odd + half(above + below)
    static void addHalf(T* to, const T* odd, const T* above, const T* below, int count) {
        for (int i = 0; i < count; i += kLanes) {
            store(to + i, load(odd + i) + half(load(above + i) + load(below + i)));
        }
    }

private:
    static void mirrorDetails(T* high, int count) {
        const int highs = count / 2;
        high[-1] = high[0];
        if (count % 2 != 0) high[highs] = high[highs - 1];
    }
};

}  // namespace dvq::kelt4::kernels
