#pragma once

#include <cstdint>

#include "kelt4/kernel_jobs.h"
#include "kelt4/kernels/attributes.h"
#include "kelt4/kernels/bitsource.h"
#include "kelt4/kernels/candidatebits.h"

namespace dvq::kelt4::kernels {

/// Turns the codes of a significance chunk into one bit for each candidate.
template <class Arch>
class EventReader {
public:
    EventReader(const SignificanceJob& job, uint64_t candidates)
        : m_source{job.bits, job.position}, m_left(candidates) {
        readRun();
    }

    /// No 1 follows any more: the chunk is whole, or it cannot be read further.
    bool finished() const { return m_ended && m_bits.held() == 0; }
    /// Reads the closing run when all candidates are given and it has not been met yet.
    void close() {
        if (!m_ended) readRun();
    }
    ChunkState state() const { return m_state; }
    uint64_t position() const { return m_source.position; }

    /// Passes over the next candidates when none of them becomes significant; else does nothing.
    KELT_INLINE bool skip(uint64_t candidates) {
        if (candidates == 0) return true;
        if (m_bits.held() != 0 || !m_runPending || m_run < candidates) return false;
        m_run -= candidates;
        return true;
    }

    /// Decodes until the bits of so many candidates (at most CandidateBits::kMaxWanted) are held.
    const CandidateBits& decode(uint64_t candidates) {
        while (m_bits.held() < candidates) {
            if (m_runPending) {
                placeRun(candidates);
            } else if (m_ended) {
                m_bits.fill(candidates);
            } else if (!windowsFit(m_source, m_left) || !readWindows(candidates)) {
                readRun();
            }
        }
        return m_bits;
    }
    /// Forgets the first candidates, whose bits were held.
    void drop(uint64_t candidates) { m_bits.drop(candidates); }

private:
    /// Moves zeros of the pending run, and the 1 after it, into the held bits until there are so many.
    KELT_INLINE void placeRun(uint64_t candidates) {
        const uint64_t room = candidates - m_bits.held();
        if (m_run >= room) {
            m_run -= room;
            m_bits.fill(candidates);
            return;
        }
        m_bits.append(m_run, m_runSign);
        m_runPending = false;
    }

    /// Whether all codes that a look at the next bits may find end before the last candidate and bit.
    KELT_INLINE static bool windowsFit(const BitSource<Arch>& source, uint64_t left) {
        return left > CandidateBits::kMaxSpan && source.bits.end - source.position >= 64;
    }

    /// Decodes the runs that lie in the next bits, several at a time, until so many candidates are held or
    /// the end is near. False when a run that is too long for that comes next.
    KELT_INLINE bool readWindows(uint64_t candidates) {
        bool fits = true;
        BitSource<Arch> source = m_source;
        uint64_t held = m_bits.held(), left = m_left;
        do {
            const uint64_t before = held;
            fits = m_bits.append(source.peek(), held, source.position);
            left -= held - before;
        } while (fits && held < candidates && windowsFit(source, left));
        m_bits.fill(held);
        m_source.position = source.position;
        m_left = left;
        return fits;
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
    /// Of candidates that were decoded and not dropped.
    CandidateBits m_bits;
    /// A run that comes after the held candidates, with its 1.
    bool m_runPending = false;
    uint64_t m_run = 0;
    uint64_t m_runSign = 0;
    bool m_ended = false;
    ChunkState m_state = ChunkState::kWhole;
};

}  // namespace dvq::kelt4::kernels
