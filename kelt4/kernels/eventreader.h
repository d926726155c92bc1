#pragma once

#include <cstdint>

#include "kelt4/kernel_jobs.h"
#include "kelt4/kernels/attributes.h"
#include "kelt4/kernels/bitsource.h"
#include "kelt4/kernels/candidatebits.h"
#include "kelt4/kernels/eventwindow.h"

namespace dvq::kelt4::kernels {

/// Turns the codes of a significance chunk into one bit for each candidate, so many at a time.
template <class Arch>
class EventReader {
public:
    EventReader(const BitSpan& bits, EventState& state) : m_bits(bits), m_state(state) {}

    /// Passes over the next candidates when none of them becomes significant; else does nothing.
    bool skip(uint64_t candidates) {
        if (m_state.held != 0) return false;
        if (!m_state.runPending && !m_state.ended) readRun();
        if (!m_state.ended) {
            if (m_state.run < candidates) return false;
            m_state.run -= candidates;
        }
        m_state.asked += candidates;
        return true;
    }

    /// Decodes the bits of the next candidates, at most CandidateBits::kMaxWanted.
    void decode(uint64_t candidates, CandidateBits& to) {
        to.clear(candidates);
        to.ones[0] = m_state.ones;
        to.signs[0] = m_state.signs;
        uint64_t held = m_state.held;
        while (held < candidates) {
            if (m_state.runPending) {
                const uint64_t room = candidates - held;
                if (m_state.run >= room) {
                    m_state.run -= room;
                    held = candidates;
                } else {
                    held += m_state.run;
                    to.append(held++, m_state.runNegative);
                    m_state.runPending = false;
                }
            } else if (m_state.ended) {
                held = candidates;
            } else if (!readWindows(candidates, held, to) && !readWindow(held, to)) {
                readRun();
            }
        }
        m_state.held = static_cast<uint8_t>(held - candidates);
        m_state.ones = CandidateBits::at(to.ones, candidates);
        m_state.signs = CandidateBits::at(to.signs, candidates);
        m_state.asked += candidates;
    }

    /// Reads the closing run when all candidates are given and it has not been met yet.
    void close() {
        if (!m_state.ended && !m_state.runPending) readRun();
    }

private:
    /// One look decodes so many windows, or one run whose code has at most so many zeros, with its sign.
    static constexpr unsigned kWindows = 4;
    static constexpr unsigned kMaxZeros = 27;
    static constexpr uint64_t kLookBits = 56;
    static_assert(kWindows * EventWindows::kMaxSpan + 7 < 64);
    static_assert(kWindows * EventWindows::kBits <= kLookBits && 2 * kMaxZeros + 1 <= kLookBits);
    /// The bytes of a look are read by whole words.
    static constexpr uint64_t kReadBits = 192;

    /// Decodes runs, several at a time, until so many candidates are held or the end of the chunk is near.
    /// False when there was nothing to do, or when a run that is too long for this comes next.
    bool readWindows(uint64_t candidates, uint64_t& held, CandidateBits& to) {
        const uint64_t chunkEnd = m_state.end, streamEnd = m_bits.end;
        if (m_state.position + kLookBits >= chunkEnd || m_state.position + kReadBits > streamEnd)
            return false;
        const auto lastLook = static_cast<int64_t>(
            chunkEnd - kLookBits < streamEnd - kReadBits ? chunkEnd - kLookBits : streamEnd - kReadBits);
        const uint8_t* at = m_bits.bytes + m_state.position / 8;
        // The next bits; those above the `there` lowest are right too, or not there yet.
        uint64_t next = load(at) >> (m_state.position % 8);
        at += 7;
        uint64_t there = 56 - m_state.position % 8;
        // Bits of candidates from `base` on, a multiple of 8; place is the next candidate's.
        const uint64_t before = held;
        uint64_t base = held / 8 * 8, place = held % 8;
        uint64_t ones = CandidateBits::byte(to.ones, base), signs = CandidateBits::byte(to.signs, base);
        bool fits = true;
        do {
            next |= load(at) << there;
            at += (63 - there) / 8;
            there |= 56;
            const EventWindow first = kEventWindows.entries[next % EventWindows::kCount];
            if (first.packed != 0) [[likely]] {
                take(first, next, there, place, ones, signs);
                for (unsigned i = 1; i < kWindows; ++i)
                    take(kEventWindows.entries[next % EventWindows::kCount], next, there, place, ones, signs);
            } else {
                const auto zeros = static_cast<unsigned>(__builtin_ctzll(next | uint64_t{1} << 63));
                fits = zeros <= kMaxZeros;
                if (!fits) break;
                const uint64_t top = (uint64_t{1} << zeros) >> 1;
                const uint64_t run = top | (next >> zeros >> 1 & (top - 1));
                const uint64_t sign = next >> (2 * zeros) & 1;
                next >>= 2 * zeros + 1;
                there -= 2 * zeros + 1;
                if (run >= candidates - (base + place)) {
                    m_state.run = run;
                    m_state.runNegative = sign != 0;
                    m_state.runPending = true;
                    m_state.told += run + 1;
                    break;
                }
                to.store(base, ones, signs);
                const uint64_t one = base + place + run;
                if (one / 8 * 8 != base) ones = signs = 0;
                base = one / 8 * 8;
                ones |= uint64_t{1} << (one % 8);
                signs |= sign << (one % 8);
                place = one % 8 + 1;
            }
            to.store(base, ones, signs);
            const uint64_t whole = place / 8 * 8;
            base += whole;
            place -= whole;
            ones >>= whole;
            signs >>= whole;
        } while (base + place < candidates &&
                 8 * (at - m_bits.bytes) - static_cast<int64_t>(there) < lastLook);
        to.store(base, ones, signs);
        held = base + place;
        m_state.told += held - before;
        m_state.position = 8 * static_cast<uint64_t>(at - m_bits.bytes) - there;
        return fits;
    }

    KELT_INLINE static void take(EventWindow window, uint64_t& next, uint64_t& there, uint64_t& place,
                                 uint64_t& ones, uint64_t& signs) {
        next >>= window.bits();
        there -= window.bits();
        ones |= window.ones() << place;
        signs |= window.signs() << place;
        place += window.span();
    }

    /// Decodes the runs that lie in the next bits; false when the first does not, or the chunk's end does.
    bool readWindow(uint64_t& held, CandidateBits& to) {
        if (m_state.position + EventWindows::kBits >= m_state.end) return false;
        const EventWindow window =
            kEventWindows.entries[BitSource<Arch>{m_bits, m_state.position}.peek() % EventWindows::kCount];
        const uint64_t base = held / 8 * 8, place = held % 8;
        to.store(base, CandidateBits::byte(to.ones, base) | window.ones() << place,
                 CandidateBits::byte(to.signs, base) | window.signs() << place);
        held += window.span();
        m_state.told += window.span();
        m_state.position += window.bits();
        return window.packed != 0;
    }

    KELT_INLINE static uint64_t load(const uint8_t* from) {
        uint64_t value;
        __builtin_memcpy(&value, from, sizeof(value));
        return value;
    }

    /// Reads one run and the sign after it. The run that ends with the chunk closes it. What cannot be read
    /// whole or is too long ends the reading, with the position before it.
    void readRun() {
        BitSource<Arch> source{m_bits, m_state.position};
        uint64_t run = 0;
        const bool valid = source.readRun(run);
        if (valid && source.position < m_state.end) {
            m_state.run = run;
            m_state.runNegative = source.read(1) != 0;
            m_state.runPending = true;
            m_state.told += run + 1;
            m_state.position = source.position;
            return;
        }
        m_state.ended = true;
        m_state.closed = valid && source.position == m_state.end;
        if (m_state.closed) m_state.told += run;
    }

    const BitSpan& m_bits;
    EventState& m_state;
};

}  // namespace dvq::kelt4::kernels
