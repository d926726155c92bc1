#pragma once

#include <cstdint>

#include "kelt4/kernel_jobs.h"
#include "kelt4/kernels/attributes.h"
#include "kelt4/kernels/bitsource.h"
#include "kelt4/kernels/eventwindow.h"

namespace dvq::kelt4::kernels {

/// Decodes chunks into the bit columns of a class, the mirror of ClassEncoder.
template <class Arch>
struct ClassDecoder {
    static ChunkEnd significance(const SignificanceJob& job) {
        ClassColumns& target = *job.target;
        uint64_t* const column = target.planes + static_cast<uint64_t>(job.plane) * target.words;
        EventReader events(job, target.size - target.significantCount);
        for (uint64_t w = 0; w < target.words && !events.finished(); ++w) {
            const uint64_t candidates = ~target.significant[w] & validBits(target, w);
            uint64_t ones = 0;
            uint64_t signs = 0;
            events.take(static_cast<unsigned>(__builtin_popcountll(candidates)), ones, signs);
            if (ones == 0) continue;
            const uint64_t fresh = Arch::deposit(ones, candidates);
            column[w] |= fresh;
            target.significant[w] |= fresh;
            target.signs[w] |= Arch::deposit(signs, candidates);
            target.significantCount += static_cast<unsigned>(__builtin_popcountll(ones));
        }
        events.close();
        return {events.state(), events.position()};
    }

    static ChunkEnd refinement(const RefinementJob& job) {
        ClassColumns& target = *job.target;
        uint64_t* const column = target.planes + static_cast<uint64_t>(job.plane) * target.words;
        BitSource<Arch> source{job.bits, job.position};
        for (uint64_t w = 0; w < target.words; ++w) {
            const uint64_t refined = target.refined[w];
            const auto count = static_cast<unsigned>(__builtin_popcountll(refined));
            if (count == 0) continue;
            const uint64_t left = job.bits.end - source.position;
            if (count > left) {
                const auto rest = static_cast<unsigned>(left);
                column[w] |= Arch::deposit(source.read(rest), refined);
                target.partlyRefined += rest;
                return {ChunkState::kCutOff, source.position};
            }
            column[w] |= Arch::deposit(source.read(count), refined);
            target.partlyRefined += count;
        }
        return {ChunkState::kWhole, source.position};
    }

private:
    static uint64_t validBits(const ClassColumns& target, uint64_t word) {
        const uint64_t left = target.size - 64 * word;
        return left >= 64 ? ~uint64_t{0} : (uint64_t{1} << left) - 1;
    }

    /// Turns the codes of a significance chunk into one bit for each candidate.
    class EventReader {
    public:
        EventReader(const SignificanceJob& job, uint64_t candidates)
            : m_source{job.bits, job.position}, m_left(candidates) {
            readRun();
        }

        /// No 1 follows any more: the chunk is whole, or it cannot be read further.
        bool finished() const { return m_ended && m_held == 0; }
        /// Reads the closing run when all candidates are given and it has not been met yet.
        void close() {
            if (!m_ended) readRun();
        }
        ChunkState state() const { return m_state; }
        uint64_t position() const { return m_source.position; }

        /// Gives the next count (at most 64) candidates.
        KELT_INLINE void take(unsigned count, uint64_t& ones, uint64_t& signs) {
            uint64_t spilledOnes = 0;
            uint64_t spilledSigns = 0;
            while (m_held < count) {
                if (m_runPending) {
                    placeRun(count);
                } else if (m_ended) {
                    m_held = count;
                } else if (m_left > 8 * EventWindows::kMaxSpan &&
                           m_source.bits.end - m_source.position >= 64) {
                    takeWindows(count, spilledOnes, spilledSigns);
                } else {
                    readRun();
                }
            }
            m_held -= count;
            if (count == 64) {
                ones = m_ones;
                signs = m_signs;
                m_ones = spilledOnes;
                m_signs = spilledSigns;
            } else {
                const uint64_t taken = (uint64_t{1} << count) - 1;
                ones = m_ones & taken;
                signs = m_signs & taken;
                m_ones = m_ones >> count | spilledOnes << (63 - count) << 1;
                m_signs = m_signs >> count | spilledSigns << (63 - count) << 1;
            }
            if (m_ended && !m_runPending && m_ones == 0) m_held = 0;
        }

    private:
        /// Moves zeros of the pending run, and the 1 after it, into the held bits until there are count.
        KELT_INLINE void placeRun(unsigned count) {
            const unsigned room = count - m_held;
            if (m_run >= room) {
                m_run -= room;
                m_held = count;
                return;
            }
            m_held += static_cast<unsigned>(m_run);
            m_ones |= uint64_t{1} << m_held;
            m_signs |= m_runSign << m_held;
            ++m_held;
            m_runPending = false;
        }

        /// Decodes the runs that lie in the next bits, several at a time, until count candidates are held or
        /// a run is too long for that. Candidates beyond the 64th are spilled.
        KELT_INLINE void takeWindows(unsigned count, uint64_t& spilledOnes, uint64_t& spilledSigns) {
            uint64_t next = m_source.peek();
            unsigned used = 0;
            do {
                const EventWindow window = kEventWindows.entries[next & (EventWindows::kCount - 1)];
                const unsigned span = window.span();
                if (span == 0) {
                    m_source.position += used;
                    readRun();
                    return;
                }
                m_ones |= window.ones() << m_held;
                m_signs |= window.signs() << m_held;
                if (m_held + span > 64) {
                    spilledOnes = window.ones() >> (64 - m_held);
                    spilledSigns = window.signs() >> (64 - m_held);
                }
                m_held += span;
                m_left -= span;
                used += window.bits();
                next >>= window.bits();
            } while (m_held < count && used <= 57 - EventWindows::kBits);
            m_source.position += used;
        }

        /// Reads one run and the sign after it. The run that ends exactly at the last candidate closes the
        /// chunk. What cannot be read whole or is too long ends the reading, with the position before it.
        void readRun() {
            const uint64_t start = m_source.position;
            const uint64_t end = m_source.bits.end;
            uint64_t run = 0;
            const bool valid = m_source.readRun(run);
            if (valid && run < m_left && m_source.position < end) {
                m_run = run;
                m_runSign = m_source.read(1);
                m_runPending = true;
                m_left -= run + 1;
                return;
            }
            m_ended = true;
            if (valid && run == m_left && m_source.position <= end) return;
            // Zeros that reach the end may be the start of anything.
            const bool cutOff = m_source.position >= end || (!valid && end - start <= 57);
            m_state = cutOff ? ChunkState::kCutOff : ChunkState::kDamaged;
            m_source.position = start;
        }

        BitSource<Arch> m_source;
        /// Candidates after the last 1 that was read.
        uint64_t m_left;
        /// Candidates decoded and not yet given.
        uint64_t m_ones = 0;
        uint64_t m_signs = 0;
        unsigned m_held = 0;
        /// A run that comes after the held candidates, with its 1.
        bool m_runPending = false;
        uint64_t m_run = 0;
        uint64_t m_runSign = 0;
        bool m_ended = false;
        ChunkState m_state = ChunkState::kWhole;
    };
};

}  // namespace dvq::kelt4::kernels
