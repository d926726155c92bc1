#pragma once

#include <cstddef>
#include <cstdint>

#include "kelt4/chunkstore.h"
#include "kelt4/kernels/attributes.h"
#include "kelt4/kernels/bitappender.h"
#include "kelt4/kernels/classencoder.h"
#include "kelt4/kernels/freshblocks.h"
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

    /// Codes count (1 to kBatch) values, which zeros follow up to the end of a block. Returns the greatest
    /// magnitude.
    template <class T>
    static uint32_t encode(ClassChunks& chunks, const T* values, size_t count) {
        const uint32_t greatest = Arch::greatestMagnitude(values, (count + kBlock - 1) / kBlock * kBlock);
        if (greatest != 0) {
            const int planes = 32 - __builtin_clz(greatest);
            Batch batch;
            toColumns(batch, values, count, planes);
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

    struct Batch {
        size_t values;
        /// Values of blocks that are left out, less the zeros after the last value.
        uint64_t omitted;
        BatchBlocks blocks;
        FreshBlocks fresh;
        typename Arch::Places places;
        /// Bits of plane p of block b at p * kBatchBlocks + b.
        uint64_t columns[kFastPlanes * kBatchBlocks];
    };

    template <class T>
    static void toColumns(Batch& batch, const T* values, size_t count, int planes) {
        BatchBlocks& blocks = batch.blocks;
        size_t used = 0, start = 0;
        for (; start < count; start += kBlock) {
            if (!Arch::toColumns(values + start, planes, batch.columns + used, kBatchBlocks,
                                 blocks.signs[used]))
                continue;
            blocks.omitted[used] = start - used * kBlock;
            blocks.above[used++] = 0;
        }
        blocks.count = used;
        batch.values = count;
        batch.omitted = count - used * kBlock;
    }

    static void codePlane(ClassChunks& chunks, int plane, Batch& batch, bool first) {
        PlaneChunks& chunk = chunks.planes[plane];
        const uint64_t* const column = batch.columns + static_cast<size_t>(plane) * kBatchBlocks;
        if (!first) refine(chunk.refinement, column, batch.blocks);
        // Less than the zeros after the last value when no block is left out: this wraps, and the sum is
        // right.
        const uint64_t candidates = Arch::findFresh(column, batch.blocks, batch.fresh) + batch.omitted;
        if (batch.fresh.count == 0) {
            chunk.passed += batch.values - candidates;
            return;
        }
        Arch::collect(batch.fresh, batch.places);
        codeRuns(chunk, chunks.seen - chunk.passed, batch.places, candidates);
        const uint64_t pending = candidates - 1 - batch.places.last();
        chunk.passed = chunks.seen + batch.values - pending;
    }

    /// The bits of the coefficients that are significant already.
    static void refine(BitSink& sink, const uint64_t* column, const BatchBlocks& blocks) {
        reserve(sink, blocks.count + 1);
        BitAppender bits = BitAppender::of(sink);
        for (size_t b = 0; b < blocks.count; ++b) {
            const uint64_t above = blocks.above[b];
            bits.append(Arch::extract(column[b], above), static_cast<unsigned>(__builtin_popcountll(above)));
        }
        bits.giveBack(sink);
    }

    /// Codes the runs before all places, of which the first adds to a run from before.
    static void codeRuns(PlaneChunks& chunk, uint64_t run, const typename Arch::Places& places,
                         uint64_t candidates) {
        BitSink& sink = chunk.significance;
        // No run takes more than two bits a candidate, sign included, and none of a batch more than 25.
        static_assert(kBatch <= 1U << 12);
        const uint64_t byCandidates = 2 * candidates, byCount = 25 * places.count;
        reserve(sink, (byCandidates < byCount ? byCandidates : byCount) / 64 + kSlack);
        ClassEncoder<Arch>::appendRun(sink, run + places.first(), places.firstSign(), 1);
        CodeAppender codes = CodeAppender::of(sink);
        Arch::appendRuns(codes, places);
        codes.giveBack(sink);
        chunk.significant += places.count;
    }

    static void reserve(BitSink& sink, size_t words) {
        if (static_cast<size_t>(sink.end - sink.current) < words) growSink(sink, words);
    }
};

}  // namespace dvq::kelt4::kernels
