#pragma once

#include <cstdint>

#include "kelt4/kernel_jobs.h"
#include "kelt4/kernels/attributes.h"
#include "kelt4/kernels/laneguard.h"
#include "kelt4/kernels/lifting.h"

namespace dvq::kelt4::kernels {

/// Transforms one component row by row and codes its coefficients as they come out, all levels in one pass.
///
/// A level takes rows, lifts each along x and, as soon as the rows around it are there, along y.
/// Approximations go on as rows of the next level; details go in raster order to the class of the level.
template <class Arch, class Coder, class T>
struct ComponentEncoder {
    using Lift = Lifting<Arch, T>;

    ComponentRows& rows;
    ChunkStore& chunks;
    int component;
    int levels;
    LaneGuard guard{};

    /// Takes a row of count samples at the given level.
    template <class S>
    void pushRow(int level, const S* samples, int count) {
        if (level == levels) {
            ClassStage& stage = rows.classes[level];
            T* const to = static_cast<T*>(stage.values) + stage.count;
            for (int i = 0; i < count; ++i)
                to[i] = static_cast<T>(samples[i]);
            advance(level, count);
            return;
        }
        LevelRows& state = rows.levels[level];
        const int y = state.next++;
        // Rows 0 to 3: last even row, odd row, details of the pair before, newest even row.
        T* const target = rowOf(state, y == 0 ? 0 : y % 2 != 0 ? 1 : 3);
        Arch::split(samples, count, target, target + state.half);
        Lift::forwardRow(target, target + state.half, count);
        const bool last = y + 1 == state.height;
        if (y % 2 != 0) {
            if (last) finishPair(level, state, rowOf(state, 0));
        } else if (y > 0) {
            finishPair(level, state, target);
            swapRows(state, 0, 3);
            if (last) {
                T* const even = rowOf(state, 0);
                const T* const details = rowOf(state, 2);
                Lift::addQuarter(even, details, details, state.half + count / 2);
                emitEven(level, state, even);
            }
        }
    }

    /// Codes what is left of every class.
    void finish() {
        for (int j = 0; j <= levels; ++j) {
            ClassStage& stage = rows.classes[j];
            T* const values = static_cast<T*>(stage.values);
            if (stage.count > 0) {
                for (size_t i = stage.count; i % kBlock != 0; ++i)
                    values[i] = 0;
                guard.addDetails(Coder::encode(chunks.at(component, j), values, stage.count));
            }
            Coder::close(chunks.at(component, j));
        }
    }

private:
    static T* rowOf(const LevelRows& state, int index) {
        return static_cast<T*>(state.rows[index]) + kRowPad;
    }
    static void swapRows(LevelRows& state, int a, int b) {
        void* const row = state.rows[a];
        state.rows[a] = state.rows[b];
        state.rows[b] = row;
    }

    /// Lifts rows 0 and 1 along y, below being the even row that follows (row 0 itself at the lower border).
    void finishPair(int level, LevelRows& state, const T* below) {
        T* const even = rowOf(state, 0);
        T* const odd = rowOf(state, 1);
        const int count = state.half + state.width / 2;
        // Without details above, those below count twice; they are in place when they are read.
        const T* const previous = state.next <= 3 ? odd : rowOf(state, 2);
        Lift::forwardPair(even, odd, below, previous, count);
        emitEven(level, state, even);
        emitDetails(level, state, odd);
        swapRows(state, 1, 2);
    }

    /// The high half of an even row belongs to the level's class, the low half to the next level.
    void emitEven(int level, LevelRows& state, const T* even) {
        ClassStage& stage = rows.classes[level];
        const int highs = state.width / 2;
        __builtin_memcpy(static_cast<T*>(stage.values) + stage.count, even + state.half,
                         static_cast<size_t>(highs) * sizeof(T));
        advance(level, highs);
        const int lows = (state.width + 1) / 2;
        if (guard.on) guard.addRow(level + 1, even, lows);
        pushRow(level + 1, even, lows);
    }

    void emitDetails(int level, LevelRows& state, const T* odd) {
        ClassStage& stage = rows.classes[level];
        Arch::merge(odd, odd + state.half, state.width, static_cast<T*>(stage.values) + stage.count);
        advance(level, state.width);
    }

    /// Codes the batches of a class that count more values complete.
    void advance(int levelClass, int count) {
        ClassStage& stage = rows.classes[levelClass];
        T* const values = static_cast<T*>(stage.values);
        const size_t held = stage.count + static_cast<size_t>(count);
        size_t done = 0;
        for (; held - done >= Coder::kBatch; done += Coder::kBatch)
            guard.addDetails(Coder::encode(chunks.at(component, levelClass), values + done, Coder::kBatch));
        stage.count = held - done;
        if (done > 0) __builtin_memcpy(values, values + done, stage.count * sizeof(T));
    }
};

/// Coder is ClassEncoder or BatchEncoder.
template <class Arch, class Coder>
struct FrameEncoder {
    static bool encode(const EncodeJob& job) {
        if (job.bytesPerPixel == 3) {
            encodeColour(job);
            return true;
        }
        if (job.bytesPerPixel == 1) return encodeGrey<int16_t>(job, static_cast<const uint8_t*>(job.pixels));
        const auto* const pixels = static_cast<const uint16_t*>(job.pixels);
        return job.narrow ? encodeGrey<int16_t>(job, pixels) : encodeGrey<int32_t>(job, pixels);
    }

private:
    static bool killed(const EncodeJob& job) { return __atomic_load_n(job.kill, __ATOMIC_RELAXED); }

    template <class T, class S>
    static bool encodeGrey(const EncodeJob& job, const S* pixels) {
        ComponentEncoder<Arch, Coder, T> encoder{job.components[0], *job.chunks, 0, job.levels};
        encoder.guard.on = job.guarded;
        for (int y = 0; y < job.height && !killed(job) && !encoder.guard.outgrown; ++y) {
            encoder.pushRow(0, pixels, job.width);
            pixels += job.width;
        }
        encoder.finish();
        return !encoder.guard.outgrown;
    }

    static void encodeColour(const EncodeJob& job) {
        using Encoder = ComponentEncoder<Arch, Coder, int16_t>;
        Encoder encoders[3] = {{job.components[0], *job.chunks, 0, job.levels},
                               {job.components[1], *job.chunks, 1, job.levels},
                               {job.components[2], *job.chunks, 2, job.levels}};
        const auto* pixels = static_cast<const uint8_t*>(job.pixels);
        int16_t* planes[3];
        for (int c = 0; c < 3; ++c)
            planes[c] = static_cast<int16_t*>(job.components[c].row);
        for (int y = 0; y < job.height && !killed(job); ++y) {
            Arch::convertColour(pixels, job.width, planes[0], planes[1], planes[2]);
            for (int c = 0; c < 3; ++c)
                encoders[c].pushRow(0, planes[c], job.width);
            pixels += 3 * static_cast<int64_t>(job.width);
        }
        for (Encoder& encoder : encoders)
            encoder.finish();
    }
};

}  // namespace dvq::kelt4::kernels
