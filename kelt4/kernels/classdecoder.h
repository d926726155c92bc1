#pragma once

#include <cstdint>

#include "kelt4/kernel_jobs.h"
#include "kelt4/kernels/attributes.h"
#include "kelt4/kernels/bitsource.h"

namespace dvq::kelt4::kernels {

/// Decodes chunks into the bit columns of a class, the mirror of ClassEncoder.
template <class Arch>
struct ClassDecoder {
    static ChunkEnd significance(const SignificanceJob& job) {
        ClassColumns& target = *job.target;
        uint64_t* const column = target.planes + static_cast<uint64_t>(job.plane) * target.words;
        const uint64_t candidatesInAll = target.size - target.significantCount;
        BitSource<Arch> source{job.bits, job.position};
        ChunkState state = ChunkState::kWhole;

        // Positions count candidates: `next` is that of the next 1, `base` that of the word's first
        // candidate.
        uint64_t next = 0;
        uint64_t base = 0;
        if (!readNext(source, 0, candidatesInAll, next, state)) return {state, source.position};
        for (uint64_t w = 0; w < target.words && next < candidatesInAll; ++w) {
            const uint64_t candidates = ~target.significant[w] & validBits(target, w);
            const auto count = static_cast<unsigned>(__builtin_popcountll(candidates));
            if (next >= base + count) {
                base += count;
                continue;
            }
            uint64_t ones = 0;
            uint64_t signs = 0;
            unsigned found = 0;
            do {
                // The sign has been checked to be there with the run.
                ones |= uint64_t{1} << (next - base);
                signs |= source.read(1) << found++;
                if (!readNext(source, next + 1, candidatesInAll, next, state)) break;
            } while (next < base + count);
            const uint64_t fresh = Arch::deposit(ones, candidates);
            column[w] |= fresh;
            target.significant[w] |= fresh;
            target.signs[w] |= Arch::deposit(signs, fresh);
            target.significantCount += found;
            if (state != ChunkState::kWhole) break;
            base += count;
        }
        return {state, source.position};
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

    /// Reads the run from `from` to the next 1. The run that ends exactly at the last candidate closes the
    /// chunk. False, with the position before the run, when it cannot be read whole (its sign included) or is
    /// too long.
    KELT_INLINE static bool readNext(BitSource<Arch>& source, uint64_t from, uint64_t candidates,
                                     uint64_t& next, ChunkState& state) {
        const uint64_t start = source.position;
        uint64_t run = 0;
        const bool valid = source.readRun(run);
        if (valid && run < candidates - from && source.position < source.bits.end) {
            next = from + run;
            return true;
        }
        if (valid && run == candidates - from && source.position <= source.bits.end) {
            next = candidates;
            return true;
        }
        // Zeros that reach the end may be the start of anything.
        const bool cutOff = source.position >= source.bits.end || (!valid && source.bits.end - start <= 57);
        state = cutOff ? ChunkState::kCutOff : ChunkState::kDamaged;
        source.position = start;
        return false;
    }
};

}  // namespace dvq::kelt4::kernels
