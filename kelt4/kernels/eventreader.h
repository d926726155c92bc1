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
    EventReader(const BitSpan& bits, EventState& state, CandidateBits& to)
        : m_bits(bits), m_state(state), m_to(to) {}

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
    void decode(uint64_t candidates) {
        begin(candidates);
        finish();
    }

    /// Decodes for two chunks at once: each waits for its own looks only.
    static void decode(EventReader& a, uint64_t candidatesOfA, EventReader& b, uint64_t candidatesOfB) {
        a.begin(candidatesOfA);
        b.begin(candidatesOfB);
        // What is pending may be placed before there is something to look at.
        a.placeRun();
        b.placeRun();
        Looks x, y;
        if (a.canLook() && b.canLook()) {
            a.start(x);
            b.start(y);
            bool aGoesOn, bGoesOn;
            do {
                aGoesOn = a.look(x);
                bGoesOn = b.look(y);
            } while (aGoesOn && bGoesOn);
            a.stop(x);
            b.stop(y);
        }
        a.finish();
        b.finish();
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

    /// What changes from look to look.
    struct Looks {
        uint64_t position;
        /// No further look begins behind this bit.
        uint64_t last;
        /// Candidates whose bits are there, and those bits from the last multiple of 8 before on.
        uint64_t held;
        uint64_t ones;
        uint64_t signs;
        /// The next run has a longer code than a look takes in.
        bool isLong;
    };

    void begin(uint64_t candidates) {
        m_wanted = candidates;
        m_held = m_state.held;
        m_to.clear(candidates);
        m_to.ones[0] = m_state.ones;
        m_to.signs[0] = m_state.signs;
    }

    void finish() {
        while (m_held < m_wanted) {
            if (m_state.runPending) {
                placeRun();
            } else if (m_state.ended) {
                m_held = m_wanted;
            } else if (!readLooks() && !readWindow()) {
                readRun();
            }
        }
        m_state.held = static_cast<uint8_t>(m_held - m_wanted);
        m_state.ones = CandidateBits::at(m_to.ones, m_wanted);
        m_state.signs = CandidateBits::at(m_to.signs, m_wanted);
        m_state.asked += m_wanted;
    }

    /// Places zeros of a pending run, and the 1 after it, until so many candidates are held as are wanted.
    KELT_INLINE void placeRun() {
        if (!m_state.runPending || m_held >= m_wanted) return;
        const uint64_t room = m_wanted - m_held;
        if (m_state.run >= room) {
            m_state.run -= room;
            m_held = m_wanted;
            return;
        }
        m_held += m_state.run;
        m_to.append(m_held++, m_state.runNegative);
        m_state.runPending = false;
    }

    /// Decodes runs, several at a time, until so many candidates are held or the end of the chunk is near.
    /// False when there was nothing to do, or when a run that is too long for this comes next.
    bool readLooks() {
        if (!canLook()) return false;
        Looks looks;
        start(looks);
        while (look(looks)) {
        }
        stop(looks);
        return !looks.isLong;
    }

    KELT_INLINE bool canLook() const {
        return m_held < m_wanted && !m_state.runPending && !m_state.ended &&
               m_state.position + kLookBits < m_state.end && m_state.position + kReadBits <= m_bits.end;
    }

    KELT_INLINE void start(Looks& looks) const {
        const uint64_t lastOfChunk = m_state.end - kLookBits, lastOfStream = m_bits.end - kReadBits;
        looks.last = lastOfChunk < lastOfStream ? lastOfChunk : lastOfStream;
        looks.position = m_state.position;
        looks.held = m_held;
        looks.ones = CandidateBits::byte(m_to.ones, m_held);
        looks.signs = CandidateBits::byte(m_to.signs, m_held);
        looks.isLong = false;
    }

    /// Whether another look may follow.
    KELT_INLINE bool look(Looks& looks) {
        uint64_t next = load(m_bits.bytes + looks.position / 8) >> (looks.position % 8);
        const EventWindow first = windowAt(next);
        uint64_t place = looks.held % 8;
        if (first.packed != 0) [[likely]] {
            take(first, looks, next, place);
            for (unsigned i = 1; i < kWindows; ++i)
                take(windowAt(next), looks, next, place);
        } else {
            const auto zeros = static_cast<unsigned>(__builtin_ctzll(next | uint64_t{1} << 63));
            looks.isLong = zeros > kMaxZeros;
            if (looks.isLong) return false;
            const uint64_t top = (uint64_t{1} << zeros) >> 1;
            const uint64_t run = top | (next >> zeros >> 1 & (top - 1));
            const uint64_t sign = next >> (2 * zeros) & 1;
            looks.position += 2 * zeros + 1;
            const uint64_t one = looks.held + run;
            if (one >= m_wanted) {
                m_state.run = run;
                m_state.runNegative = sign != 0;
                m_state.runPending = true;
                m_state.told += run + 1;
                return false;
            }
            m_to.store(looks.held, looks.ones, looks.signs);
            if (one / 8 != looks.held / 8) looks.ones = looks.signs = 0;
            looks.held = one;
            looks.ones |= uint64_t{1} << (one % 8);
            looks.signs |= sign << (one % 8);
            place = one % 8 + 1;
        }
        m_to.store(looks.held, looks.ones, looks.signs);
        looks.held = looks.held / 8 * 8 + place;
        const uint64_t whole = place / 8 * 8;
        looks.ones >>= whole;
        looks.signs >>= whole;
        return looks.held < m_wanted && looks.position < looks.last;
    }

    KELT_INLINE void stop(const Looks& looks) {
        m_to.store(looks.held, looks.ones, looks.signs);
        // The look that ended with a pending run has counted it already.
        m_state.told += looks.held - m_held;
        m_held = looks.held;
        m_state.position = looks.position;
    }

    KELT_INLINE static EventWindow windowAt(uint64_t next) {
        return kEventWindows.entries[next % EventWindows::kCount];
    }

    KELT_INLINE static void take(EventWindow window, Looks& looks, uint64_t& next, uint64_t& place) {
        next >>= window.bits();
        looks.position += window.bits();
        looks.ones |= window.ones() << place;
        looks.signs |= window.signs() << place;
        place += window.span();
    }

    /// Decodes the runs that lie in the next bits; false when the first does not, or the chunk's end does.
    bool readWindow() {
        if (m_state.position + EventWindows::kBits >= m_state.end) return false;
        const EventWindow window = windowAt(BitSource<Arch>{m_bits, m_state.position}.peek());
        const uint64_t base = m_held / 8 * 8, place = m_held % 8;
        m_to.store(base, CandidateBits::byte(m_to.ones, base) | window.ones() << place,
                   CandidateBits::byte(m_to.signs, base) | window.signs() << place);
        m_held += window.span();
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

    const BitSpan m_bits;
    EventState& m_state;
    CandidateBits& m_to;
    /// Candidates whose bits are wanted, and those that are there.
    uint64_t m_wanted = 0;
    uint64_t m_held = 0;
};

}  // namespace dvq::kelt4::kernels
