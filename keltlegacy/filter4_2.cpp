#include "keltlegacy/filter4_2.h"

#include <array>
#include <type_traits>
#include <vector>

namespace keltlegacy {
namespace {

/// value / 2^shift, rounded to nearest, halves away from zero: of those below it, one less is rounded up.
template <int shift, class Wide>
Wide rounded(Wide value) {
    const Wide sign = value >> (8 * sizeof(Wide) - 1);
    return (value + sign + (Wide{1} << (shift - 1))) >> shift;
}

/// The prediction of a sample from its neighbours at distance 1 and 3.
template <class T, class Wide>
Wide predicted(Wide near1, Wide near2, Wide far1, Wide far2) {
    Wide sum = 9 * (near1 + near2) - (far1 + far2);
    if constexpr (std::is_same_v<T, int16_t>) sum = static_cast<int16_t>(sum);
    return rounded<4>(sum);
}

/// v * 152 / 128; the common factor is taken out.
template <class Wide>
Wide amplified(Wide v) {
    return rounded<4>(static_cast<Wide>(19 * v));
}

/// s * 128 / 152 to the nearest: 16 s / 19 never ends in a half.
int64_t attenuated(int64_t s) {
    return s >= 0 ? (16 * s + 9) / 19 : -((16 * -s + 9) / 19);
}

// The lifting steps on whole lines; a line is either a row of an image or every second sample of one row.
// Forward, 32 bits hold every sum; backward the coefficients may come from a damaged stream, and 64 bits do.

template <class T>
void predictLine(T* __restrict x, const T* near1, const T* near2, const T* far1, const T* far2, int n) {
    for (int i = 0; i < n; ++i)
        x[i] = static_cast<T>(x[i] - predicted<T, int32_t>(near1[i], near2[i], far1[i], far2[i]));
}

template <class T>
void updateLine(T* __restrict x, const T* before, const T* after, int n) {
    for (int i = 0; i < n; ++i)
        x[i] = static_cast<T>(amplified<int32_t>(x[i] + rounded<2>(int32_t{before[i]} + after[i])));
}

template <class T>
void unupdateLine(T* __restrict x, const T* before, const T* after, int n) {
    for (int i = 0; i < n; ++i)
        x[i] = static_cast<T>(attenuated(x[i]) - rounded<2>(int64_t{before[i]} + after[i]));
}

template <class T>
void unpredictLine(T* __restrict x, const T* near1, const T* near2, const T* far1, const T* far2, int n) {
    for (int i = 0; i < n; ++i)
        x[i] = static_cast<T>(x[i] + predicted<T, int64_t>(near1[i], near2[i], far1[i], far2[i]));
}

/// Index i mirrored, as often as needed, into 0 ... n - 1 (n of 2 or more).
int mirrored(int i, int n) {
    while (i < 0 || i >= n)
        i = i < 0 ? -i : 2 * (n - 1) - i;
    return i;
}

/// One row of samples taken apart into even and odd ones, with the mirrored neighbours at both ends in place.
template <class T>
class SplitRow {
public:
    SplitRow(const T* x, int n)
        : m_n(n),
          m_evenCount((n + 1) / 2),
          m_oddCount(n / 2),
          m_long(n > kShort ? static_cast<size_t>(n) + kNeighbours : 0),
          m_even((n > kShort ? m_long.data() : m_short.data()) + 1),
          m_odd(m_even + m_evenCount + 3) {
        T* __restrict even = m_even;
        T* __restrict odd = m_odd;
        for (int i = 0; i < m_oddCount; ++i) {
            even[i] = x[2 * i];
            odd[i] = x[2 * i + 1];
        }
        if (n % 2 != 0) m_even[m_evenCount - 1] = x[n - 1];
    }

    void joinTo(T* __restrict x) const {
        for (int i = 0; i < m_oddCount; ++i) {
            x[2 * i] = m_even[i];
            x[2 * i + 1] = m_odd[i];
        }
        if (m_n % 2 != 0) x[m_n - 1] = m_even[m_evenCount - 1];
    }

    template <class Step>
    void withPrediction(Step step) {
        for (const int k : {-1, m_evenCount, m_evenCount + 1})
            m_even[k] = m_even[mirrored(2 * k, m_n) / 2];
        step(m_odd, m_even, m_even + 1, m_even - 1, m_even + 2, m_oddCount);
    }
    template <class Step>
    void withUpdate(Step step) {
        m_odd[-1] = m_odd[0];
        m_odd[m_oddCount] = m_odd[m_oddCount - 1];
        step(m_even, m_odd - 1, m_odd, m_evenCount);
    }

private:
    static constexpr int kNeighbours = 5;
    static constexpr int kShort = 256;  ///< samples of a row that need no memory of their own

    int m_n, m_evenCount, m_oddCount;
    std::array<T, kShort + kNeighbours> m_short;
    std::vector<T> m_long;
    T* m_even;
    T* m_odd;
};

/// Calls an operation on adjacent samples for samples that are not.
template <class T, class Operation>
void onCopy(T* x, int n, size_t step, Operation operation) {
    if (n < 2) return;
    std::vector<T> copy(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i)
        copy[i] = x[i * step];
    operation(copy.data(), n);
    for (int i = 0; i < n; ++i)
        x[i * step] = copy[i];
}

/// Calls a prediction step for every odd row of a block of columns.
template <class T, class Step>
void forOddRows(T* x, int n, size_t stride, int columns, Step step) {
    const auto row = [=](int i) { return x + mirrored(i, n) * stride; };
    for (int i = 1; i < n; i += 2)
        step(row(i), row(i - 1), row(i + 1), row(i - 3), row(i + 3), columns);
}

/// Calls an update step for every even row of a block of columns.
template <class T, class Step>
void forEvenRows(T* x, int n, size_t stride, int columns, Step step) {
    const auto row = [=](int i) { return x + mirrored(i, n) * stride; };
    for (int i = 0; i < n; i += 2)
        step(row(i), row(i - 1), row(i + 1), columns);
}

}  // namespace

template <class T>
void Filter4_2<T>::transform(T* x, int n, size_t step) const {
    if (step == 1) return transformInner(x, n);
    onCopy(x, n, step, [this](T* copy, int count) { transformInner(copy, count); });
}

template <class T>
void Filter4_2<T>::transformInner(T* x, int n) const {
    if (n < 2) return;
    SplitRow<T> row(x, n);
    row.withPrediction(predictLine<T>);
    row.withUpdate(updateLine<T>);
    row.joinTo(x);
}

template <class T>
void Filter4_2<T>::transformColumns(T* x, int n, size_t stride, int columns) const {
    if (n < 2) return;
    forOddRows(x, n, stride, columns, predictLine<T>);
    forEvenRows(x, n, stride, columns, updateLine<T>);
}

template <class T>
void Filter4_2<T>::untransform(T* x, int n, size_t step) const {
    if (step == 1) return untransformInner(x, n);
    onCopy(x, n, step, [this](T* copy, int count) { untransformInner(copy, count); });
}

template <class T>
void Filter4_2<T>::untransformInner(T* x, int n) const {
    if (n < 2) return;
    SplitRow<T> row(x, n);
    row.withUpdate(unupdateLine<T>);
    row.withPrediction(unpredictLine<T>);
    row.joinTo(x);
}

template <class T>
void Filter4_2<T>::untransformColumns(T* x, int n, size_t stride, int columns) const {
    if (n < 2) return;
    forEvenRows(x, n, stride, columns, unupdateLine<T>);
    forOddRows(x, n, stride, columns, unpredictLine<T>);
}

template class Filter4_2<int16_t>;
template class Filter4_2<int32_t>;

}  // namespace keltlegacy
