#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "kelt4/chunkstore.h"
#include "kelt4/kernels/attributes.h"
#include "kelt4/kernels/bitappender.h"
#include "kelt4/kernels/classencoder.h"
#include "kelt4/rowbuffers.h"

namespace dvq::kelt4::kernels {

/// Codes the coefficients of one class, up to kBatch at a time, into the chunks of its planes.
///
/// Plane by plane over the whole batch: each step is then one long loop whose passes are alike, where block
/// by block every plane would end a short loop and be guessed wrong. First the places of the coefficients
/// that become significant are written down, counted among those that are not yet; then all runs between them
/// are coded.
template <class Arch>
struct BatchEncoder {
    static constexpr size_t kBatch = kLargestBatch;
    static constexpr size_t kBlocks = kBatch / kBlock;

    /// Codes count (1 to kBatch) values, which zeros follow up to the end of a block. Returns the greatest
    /// magnitude.
    template <class T>
    static uint32_t encode(ClassChunks& chunks, const T* values, size_t count) {
        const size_t blocks = (count + kBlock - 1) / kBlock;
        const uint32_t greatest = Arch::greatestMagnitude(values, blocks * kBlock);
        if (greatest != 0) {
            const int planes = 32 - __builtin_clz(greatest);
            Batch batch;
            batch.blocks = blocks;
            batch.padding = blocks * kBlock - count;
            for (size_t b = 0; b < blocks; ++b) {
                Arch::toColumns(values + b * kBlock, planes, batch.columns + b, kBlocks, batch.signs[b]);
                batch.above[b] = 0;
            }
            for (int plane = planes - 1; plane >= 0; --plane)
                codePlane(chunks, plane, batch, plane == planes - 1);
        }
        chunks.seen += count;
        return greatest;
    }

    static void close(ClassChunks& chunks) { ClassEncoder<Arch>::close(chunks); }

private:
    /// Words beyond those of the bits: a code of a run from earlier batches and what appending writes ahead.
    static constexpr size_t kSlack = 4;

    /// Coefficients of a block that become significant in a plane.
    struct Fresh {
        uint64_t bits;
        uint64_t candidates;
        uint32_t block;
        /// Candidates in the blocks before.
        uint32_t first;
    };

    struct Batch {
        size_t blocks;
        /// Zeros after the last value.
        size_t padding;
        /// Bits of plane p of block b at p * kBlocks + b.
        uint64_t columns[kFastPlanes * kBlocks];
        uint64_t signs[kBlocks];
        /// Coefficients significant in the planes done.
        uint64_t above[kBlocks];
        /// Of a plane: the blocks that have any, where coefficients become significant, and a 0 for each that
        /// is negative.
        Fresh fresh[kBlocks + 1];
        uint16_t places[kBatch + kBlock];
        uint64_t positives[kBlocks + 2];
    };

    static void codePlane(ClassChunks& chunks, int plane, Batch& batch, bool first) {
        PlaneChunks& chunk = chunks.planes[plane];
        const uint64_t* const columns = batch.columns + static_cast<size_t>(plane) * kBlocks;
        if (!first) refine(chunk.refinement, columns, batch);
        uint64_t candidates = 0;
        const size_t used = findFresh(columns, batch, candidates);
        const size_t valid = batch.blocks * kBlock - batch.padding;
        candidates -= batch.padding;
        if (used == 0) {
            chunk.passed += valid - candidates;
            return;
        }
        const size_t count = collect(batch, used);
        codeRuns(chunk, chunks.seen - chunk.passed, batch, count, candidates);
        const uint64_t pending = candidates - 1 - batch.places[count - 1];
        chunk.passed = chunks.seen + valid - pending;
    }

    static size_t findFresh(const uint64_t* columns, Batch& batch, uint64_t& candidates) {
        size_t used = 0;
        unsigned before = 0;
        for (size_t b = 0; b < batch.blocks; ++b) {
            const uint64_t above = batch.above[b], column = columns[b];
            const uint64_t fresh = column & ~above;
            batch.above[b] = above | column;
            batch.fresh[used] = {fresh, ~above, static_cast<uint32_t>(b), before};
            used += fresh != 0 ? 1 : 0;
            before += kBlock - static_cast<unsigned>(__builtin_popcountll(above));
        }
        candidates = before;
        return used;
    }

    static size_t collect(Batch& batch, size_t used) {
        uint16_t* place = batch.places;
        BitAppender positives{batch.positives, 0, 0};
        for (size_t i = 0; i < used; ++i) {
            const Fresh& fresh = batch.fresh[i];
            const auto count = static_cast<unsigned>(__builtin_popcountll(fresh.bits));
            Arch::writePlaces(Arch::extract(fresh.bits, fresh.candidates), fresh.first, place);
            positives.append(Arch::extract(~batch.signs[fresh.block], fresh.bits), count);
            place += count;
        }
        *positives.current = positives.accumulator;
        return static_cast<size_t>(place - batch.places);
    }

    /// The bits of the coefficients that are significant already.
    static void refine(BitSink& sink, const uint64_t* columns, const Batch& batch) {
        reserve(sink, batch.blocks + 1);
        BitAppender bits = BitAppender::of(sink);
        for (size_t b = 0; b < batch.blocks; ++b) {
            const uint64_t above = batch.above[b];
            bits.append(Arch::extract(columns[b], above), static_cast<unsigned>(__builtin_popcountll(above)));
        }
        bits.giveBack(sink);
    }

    /// Codes the runs before count places, of which the first adds to a run from before.
    static void codeRuns(PlaneChunks& chunk, uint64_t run, const Batch& batch, size_t count,
                         uint64_t candidates) {
        BitSink& sink = chunk.significance;
        // No run takes more than two bits a candidate, sign included, and none of a batch more than 25.
        static_assert(kBatch <= 1U << 12);
        reserve(sink, std::min<size_t>(2 * candidates, 25 * count) / 64 + kSlack);
        ClassEncoder<Arch>::appendRun(sink, run + batch.places[0], ~batch.positives[0] & 1, 1);
        BitAppender bits = BitAppender::of(sink);
        Arch::appendRuns(bits, batch.places, count, batch.positives);
        bits.giveBack(sink);
        chunk.significant += count;
    }

    static void reserve(BitSink& sink, size_t words) {
        if (static_cast<size_t>(sink.end - sink.current) < words) growSink(sink, words);
    }
};

}  // namespace dvq::kelt4::kernels
