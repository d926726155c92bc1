#pragma once

#include <cstddef>
#include <cstdint>

#include "kelt4/chunkstore.h"
#include "kelt4/kernels/attributes.h"
#include "kelt4/rowbuffers.h"

namespace dvq::kelt4::kernels {

/// Codes the coefficients of one class, 64 at a time, into the chunks of its planes.
///
/// For each plane a block gives one word of bits. The coefficients already significant contribute their bits
/// to the refinement chunk, compacted; of the others the bits are runs of zeros between coefficients that
/// become significant.
template <class Arch>
struct ClassEncoder {
    /// Values that are worth collecting before they are coded.
    static constexpr size_t kBatch = kBlock;

    /// Codes count (at least 1) values, which zeros follow up to the end of a block. Returns what no
    /// magnitude is greater than.
    template <class T>
    static uint32_t encode(ClassChunks& chunks, const T* values, size_t count) {
        int planes = 0;
        for (size_t done = 0; done < count; done += kBlock) {
            const size_t valid = count - done < kBlock ? count - done : kBlock;
            const int used = encodeBlock(chunks, values + done, static_cast<unsigned>(valid));
            planes = used > planes ? used : planes;
        }
        return (uint32_t{1} << planes) - 1;
    }

    /// Codes the first valid (1 to 64) of 64 values; the others must be 0. Returns the number of planes in
    /// use.
    template <class T>
    static int encodeBlock(ClassChunks& chunks, const T* values, unsigned valid) {
        uint64_t columns[kFastPlanes];
        uint64_t signs;
        const int planes = Arch::toColumns(values, columns, signs);
        const uint64_t all = ~uint64_t{0} >> (64 - valid);
        uint64_t above = 0;
        for (int plane = planes - 1; plane >= 0; --plane) {
            PlaneChunks& chunk = chunks.planes[plane];
            const uint64_t column = columns[plane];
            const auto refined = static_cast<unsigned>(__builtin_popcountll(above));
            if (refined != 0) {
                if (chunk.refinement.end - chunk.refinement.current < kSinkRoom)
                    growSink(chunk.refinement, kSinkRoom);
                append(chunk.refinement, Arch::extract(column, above), refined);
            }
            const uint64_t fresh = column & ~above;
            if (fresh != 0) {
                const uint64_t run = codeRuns(chunk, chunks.seen - chunk.passed, fresh, signs, all & ~above);
                chunk.passed = chunks.seen + valid - run;
            } else {
                chunk.passed += refined;
            }
            above |= column;
        }
        chunks.seen += valid;
        return planes;
    }

    /// Ends the significance chunks: a chunk that holds bits gets the code of its pending run.
    static void close(ClassChunks& chunks) {
        for (PlaneChunks& chunk : chunks.planes) {
            if (chunk.significant == 0) continue;
            BitSink& sink = chunk.significance;
            if (sink.end - sink.current < kSinkRoom) growSink(sink, kSinkRoom);
            appendRun(sink, chunks.seen - chunk.passed, 0, 0);
        }
        for (PlaneChunks& chunk : chunks.planes) {
            storePending(chunk.significance);
            storePending(chunk.refinement);
        }
    }

    /// The code of a run, followed by signBits (0 or 1) bits of sign.
    KELT_INLINE static void appendRun(BitSink& sink, uint64_t run, uint64_t sign, unsigned signBits) {
        if (run == 0) {
            append(sink, 1 | sign << 1, 1 + signBits);
            return;
        }
        const unsigned log = 63 - static_cast<unsigned>(__builtin_clzll(run));
        const unsigned length = 2 + 2 * log;
        const uint64_t code = uint64_t{1} << (1 + log) | (run ^ uint64_t{1} << log) << (2 + log);
        if (length == 64) {
            append(sink, code, length);
            append(sink, sign, signBits);
        } else {
            append(sink, code | sign << length, length + signBits);
        }
    }

private:
    KELT_INLINE static void append(BitSink& sink, uint64_t bits, unsigned count) {
        const unsigned pending = sink.pending;
        const unsigned total = pending + count;
        sink.accumulator |= bits << pending;
        if (total >= 64) {
            *sink.current++ = sink.accumulator;
            sink.accumulator = pending == 0 ? 0 : bits >> (64 - pending);
        }
        sink.pending = total & 63;
    }

    static void storePending(BitSink& sink) {
        if (sink.pending == 0) return;
        if (sink.current == sink.end) growSink(sink, kSinkRoom);
        *sink.current = sink.accumulator;
    }

    /// Codes the coefficients of fresh among the candidates and returns the run that stays pending.
    KELT_INLINE static uint64_t codeRuns(PlaneChunks& chunk, uint64_t run, uint64_t fresh, uint64_t signs,
                                         uint64_t candidates) {
        if (chunk.significance.end - chunk.significance.current < kSinkRoom)
            growSink(chunk.significance, kSinkRoom);
        BitSink sink = chunk.significance;
        chunk.significant += static_cast<unsigned>(__builtin_popcountll(fresh));
        uint64_t ones = Arch::extract(fresh, candidates);
        uint64_t oneSigns = Arch::extract(signs, fresh);
        auto left = static_cast<unsigned>(__builtin_popcountll(candidates));
        do {
            const auto zeros = static_cast<unsigned>(__builtin_ctzll(ones));
            appendRun(sink, run + zeros, oneSigns & 1, 1);
            run = 0;
            oneSigns >>= 1;
            ones = ones >> zeros >> 1;
            left -= zeros + 1;
        } while (ones != 0);
        chunk.significance = sink;
        return run + left;
    }
};

}  // namespace dvq::kelt4::kernels
