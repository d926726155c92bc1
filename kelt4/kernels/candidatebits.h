#pragma once

#include <cstdint>

#include "kelt4/kernels/attributes.h"
#include "kelt4/kernels/eventwindow.h"

namespace dvq::kelt4::kernels {

/// One bit for each of the next candidates of a significance chunk: becoming significant, and negative. A
/// queue: codes add at its end, words take from its start.
class CandidateBits {
public:
    /// Windows that one call of append() may add.
    static constexpr unsigned kWindows = 3;
    static constexpr uint64_t kMaxSpan = kWindows * EventWindows::kMaxSpan;
    /// Candidates that may be wanted at once. The last code for them may bring more.
    static constexpr uint64_t kMaxWanted = 64 * 64;

    uint64_t held() const { return m_held; }

    /// Adds the windows that lie in the next bits, up to kWindows of them, after the first `held` candidates.
    /// Both numbers are the caller's while it goes on, and then given back by fill(): `held` and `used`, of
    /// bits, grow. False when the run that follows is too long for a window, or not whole in the bits.
    KELT_INLINE bool append(uint64_t next, uint64_t& held, uint64_t& used) {
        auto* const onesByte = reinterpret_cast<unsigned char*>(m_ones) + held / 8;
        auto* const signsByte = reinterpret_cast<unsigned char*>(m_signs) + held / 8;
        uint64_t ones = *onesByte, signs = *signsByte, place = held % 8;
        bool fits = true;
        for (unsigned i = 0; i < kWindows; ++i) {
            const EventWindow window = kEventWindows.entries[next & (EventWindows::kCount - 1)];
            fits = window.span() != 0;
            if (!fits) break;
            ones |= window.ones() << place;
            signs |= window.signs() << place;
            place += window.span();
            used += window.bits();
            next >>= window.bits();
        }
        __builtin_memcpy(onesByte, &ones, sizeof(ones));
        __builtin_memcpy(signsByte, &signs, sizeof(signs));
        held += place - held % 8;
        return fits;
    }

    /// Adds zeros and, after them, one that becomes significant.
    KELT_INLINE void append(uint64_t zeros, uint64_t sign) {
        m_held += zeros;
        m_ones[m_held / 64] |= uint64_t{1} << (m_held % 64);
        m_signs[m_held / 64] |= sign << (m_held % 64);
        ++m_held;
    }
    /// So many are held now; those that nobody added are zeros.
    void fill(uint64_t candidates) { m_held = candidates; }

    /// The bits of 64 candidates from the given one on. Beyond the held ones there are zeros.
    KELT_INLINE uint64_t ones(uint64_t candidate) const { return bitsAt(m_ones, candidate); }
    KELT_INLINE uint64_t signs(uint64_t candidate) const { return bitsAt(m_signs, candidate); }

    /// Takes the first candidates away.
    void drop(uint64_t candidates) {
        const uint64_t words = m_held / 64 + 1;
        m_held -= candidates;
        const uint64_t kept = m_held / 64 + 1;
        for (uint64_t i = 0; i < kept; ++i) {
            m_ones[i] = ones(candidates + 64 * i);
            m_signs[i] = signs(candidates + 64 * i);
        }
        for (uint64_t i = kept; i < words; ++i)
            m_ones[i] = m_signs[i] = 0;
    }

private:
    /// Room for what the last windows bring beyond the wanted candidates, and for reading a word from there.
    static constexpr uint64_t kWords = (kMaxWanted + kMaxSpan) / 64 + 3;

    KELT_INLINE static uint64_t bitsAt(const uint64_t* words, uint64_t place) {
        const uint64_t* const word = words + place / 64;
        return word[0] >> (place % 64) | word[1] << 1 << (63 - place % 64);
    }

    uint64_t m_held = 0;
    uint64_t m_ones[kWords] = {};
    uint64_t m_signs[kWords] = {};
};

}  // namespace dvq::kelt4::kernels
