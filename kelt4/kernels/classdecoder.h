#pragma once

#include <cstdint>

#include "kelt4/kernel_jobs.h"
#include "kelt4/kernels/attributes.h"
#include "kelt4/kernels/bitsource.h"
#include "kelt4/kernels/eventreader.h"

namespace dvq::kelt4::kernels {

/// Decodes chunks into the bit columns of a class, the mirror of ClassEncoder.
template <class Arch>
struct ClassDecoder {
    /// Words of a class whose candidates' bits are decoded before they are spread: the decoding of codes then
    /// runs on without a look at the words.
    static constexpr uint64_t kGroup = CandidateBits::kMaxWanted / 64;

    static ChunkEnd significance(const SignificanceJob& job) {
        ClassColumns& target = *job.target;
        EventReader<Arch> events(job, target.size - target.significantCount);
        for (uint64_t first = 0; first < target.words && !events.finished(); first += kGroup) {
            const uint64_t last = first + kGroup < target.words ? first + kGroup : target.words;
            uint64_t candidates = 0;
            for (uint64_t w = first; w < last; ++w)
                candidates += count(candidatesOf(target, w));
            if (events.skip(candidates)) continue;
            spread(target, first, last, job.plane, events.decode(candidates));
            events.drop(candidates);
        }
        events.close();
        return {events.state(), events.position()};
    }

    static ChunkEnd refinement(const RefinementJob& job) {
        ClassColumns& target = *job.target;
        uint64_t* const column = target.planes + static_cast<uint64_t>(job.plane) * target.words;
        BitSource<Arch> source{job.bits, job.position};
        uint64_t w = 0;
        for (; w < target.words && job.bits.end - source.position >= BitSource<Arch>::kFastBits; ++w) {
            const uint64_t refined = target.refined[w];
            column[w] |= Arch::deposit(source.peekFast(), refined);
            source.position += count(refined);
        }
        target.partlyRefined += source.position - job.position;
        for (; w < target.words; ++w) {
            const uint64_t refined = target.refined[w];
            const uint64_t left = job.bits.end - source.position;
            const unsigned wanted = count(refined);
            const unsigned there = wanted < left ? wanted : static_cast<unsigned>(left);
            column[w] |= Arch::deposit(source.read(there), refined);
            target.partlyRefined += there;
            if (there < wanted) return {ChunkState::kCutOff, source.position};
        }
        return {ChunkState::kWhole, source.position};
    }

private:
    static unsigned count(uint64_t bits) { return static_cast<unsigned>(__builtin_popcountll(bits)); }

    /// The coefficients of a word that are not significant yet.
    KELT_INLINE static uint64_t candidatesOf(const ClassColumns& target, uint64_t word) {
        const uint64_t left = target.size - 64 * word;
        return ~target.significant[word] & (left >= 64 ? ~uint64_t{0} : (uint64_t{1} << left) - 1);
    }

    /// Takes the decoded bits to the words' candidates.
    static void spread(ClassColumns& target, uint64_t first, uint64_t last, int plane,
                       const CandidateBits& bits) {
        uint64_t* const column = target.planes + static_cast<uint64_t>(plane) * target.words;
        uint64_t place = 0;
        for (uint64_t w = first; w < last; ++w) {
            const uint64_t candidates = candidatesOf(target, w);
            const unsigned candidatesHere = count(candidates);
            uint64_t ones = bits.ones(place), signs = bits.signs(place);
            place += candidatesHere;
            // The last bit of the shift first: of no candidates there are none.
            if (candidatesHere == 0 || ones << (64 - candidatesHere) == 0) continue;
            Arch::deposit(ones, signs, candidates);
            column[w] |= ones;
            target.significant[w] |= ones;
            target.signs[w] |= signs;
            target.significantCount += count(ones);
        }
    }
};

}  // namespace dvq::kelt4::kernels
