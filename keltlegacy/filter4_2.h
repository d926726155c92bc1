#pragma once

#include <cstddef>
#include <cstdint>

namespace keltlegacy {

/// The one-dimensional lifting filter: every odd sample is replaced by its difference from a 4-tap
/// prediction, every even sample is corrected by its two differences and then amplified by 152/128. Both ends
/// are mirrored. The inverse undoes the steps in reverse and gives back what was transformed exactly: the
/// amplification maps different values to different values, so the nearest inverse is the right one.
///
/// T is int16_t (8-bit samples) or int32_t (16-bit samples, whose coefficients stay below 2^22 in
/// five levels). In 16 bits the prediction wraps, in both directions alike.
template <class T>
class Filter4_2 {
public:
    /// Transforms n samples that are `step` elements apart. Fewer than two samples stay as they are.
    void transform(T* x, int n, size_t step) const;
    /// The same for adjacent samples.
    void transformInner(T* x, int n) const;
    /// Transforms `columns` adjacent columns of n samples each; one sample of all of them makes a row, and
    /// rows are `stride` elements apart.
    void transformColumns(T* x, int n, size_t stride, int columns) const;

    void untransform(T* x, int n, size_t step) const;
    void untransformInner(T* x, int n) const;
    void untransformColumns(T* x, int n, size_t stride, int columns) const;
};

extern template class Filter4_2<int16_t>;
extern template class Filter4_2<int32_t>;

}  // namespace keltlegacy
