#pragma once

#include <atomic>
#include <cstdint>
#include <span>
#include <vector>

#include "keltlegacy/bitstreamer.h"
#include "keltlegacy/filter4_2.h"
#include "keltlegacy/levels.h"

namespace keltlegacy {

/// Drives the filter over the levels of a picture and writes the coefficients.
template <class T>
class Wavelet {
public:
    explicit Wavelet(const Filter4_2<T>& filter) : m_filter(&filter) {}

    /// Transforms one component of w x h samples and sorts the coefficients by level class. Gives up between
    /// two levels, with classes missing, once `kill` was called.
    LevelClasses<T> transform(std::vector<T> plane, int w, int h, int levels) const;
    /// The reverse; `classes` holds one entry more than there are levels.
    std::vector<T> untransform(LevelClasses<T> classes, int w, int h) const;

    /// Writes the bit stream of all components: the planes and classes in diagonals from the most to the
    /// least significant. Throws `outputCapacityReached` when the output is full.
    static void writeWavelet(std::span<const LevelClasses<T>> components, BitStreamer& out);

    // May be called from another thread.
    void stop() { m_stop = 1; }
    void kill() {
        m_stop = 1;
        m_kill = 1;
    }
    bool killed() const { return m_kill != 0; }

private:
    const Filter4_2<T>* m_filter;
    std::atomic<int32_t> m_stop{0};
    std::atomic<int32_t> m_kill{0};
};

extern template class Wavelet<int16_t>;
extern template class Wavelet<int32_t>;

}  // namespace keltlegacy
