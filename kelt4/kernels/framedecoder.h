#pragma once

#include <cstdint>

#include "kelt4/kernel_jobs.h"
#include "kelt4/kernels/attributes.h"
#include "kelt4/kernels/classdecoder.h"
#include "kelt4/kernels/lifting.h"

namespace dvq::kelt4::kernels {

/// Gives the rows of one component from top to bottom. Each level draws rows of approximations from the level
/// below it and details from its class, and keeps the few rows that its steps along y need.
template <class Arch, class T>
struct ComponentDecoder {
    using Lift = Lifting<Arch, T>;

    ComponentRows& rows;
    const BitSpan& bits;
    CodedClass* classes;
    int levels;
    int planes;
    Extremes<typename Lift::Vector> extremes{};

    /// Writes the next row of a level's lattice, width samples; up to 64 elements after it are written too.
    void pullRow(int level, int width, T* to) {
        if (level == levels) {
            __builtin_memcpy(to, take(level, width), static_cast<size_t>(width) * sizeof(T));
            return;
        }
        LevelRows& state = rows.levels[level];
        const int y = state.next++;
        if (y == 0) {
            pullApproximations(level, state, rowOf(state, 0));
            pullDetails(level, state, rowOf(state, 1));
            Lift::subtractQuarter(rowOf(state, 0), rowOf(state, 1), rowOf(state, 1), span(state));
        }
        T* row = rowOf(state, 0);
        if (y % 2 != 0) {
            const T* const below = y + 1 < state.height ? pullBelow(level, state, y) : row;
            Lift::addHalf(rowOf(state, 4), rowOf(state, 1), row, below, span(state));
            row = rowOf(state, 4);
            swapRows(state, 0, 2);
            swapRows(state, 1, 3);
        }
        Lift::inverseRow(row, row + state.half, state.width, to, extremes);
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
    /// Elements from the start of a row's low half to the end of its high half.
    static int span(const LevelRows& state) { return state.half + state.width / 2; }

    /// The even row after odd row y, with the steps along y undone, in row 2; the details after it in row 3.
    const T* pullBelow(int level, LevelRows& state, int y) {
        T* const even = rowOf(state, 2);
        pullApproximations(level, state, even);
        const T* details = rowOf(state, 1);
        if (y + 2 < state.height) {
            pullDetails(level, state, rowOf(state, 3));
            details = rowOf(state, 3);
        }
        Lift::subtractQuarter(even, rowOf(state, 1), details, span(state));
        return even;
    }

    void pullApproximations(int level, LevelRows& state, T* row) {
        const int highs = state.width / 2;
        __builtin_memcpy(row + state.half, take(level, highs), static_cast<size_t>(highs) * sizeof(T));
        pullRow(level + 1, (state.width + 1) / 2, row);
    }

    void pullDetails(int level, LevelRows& state, T* row) {
        Arch::split(take(level, state.width), state.width, row, row + state.half);
    }

    /// The next count values of a class; valid until the next call.
    const T* take(int levelClass, int count) {
        ClassStage& stage = rows.classes[levelClass];
        T* const values = static_cast<T*>(stage.values);
        const auto wanted = static_cast<size_t>(count);
        if (stage.count < wanted) {
            __builtin_memmove(values, values + stage.first, stage.count * sizeof(T));
            stage.first = 0;
            while (stage.count < wanted) {
                CodedClass& coded = classes[levelClass];
                const uint64_t before = coded.done;
                ClassDecoder<Arch, T>::decode(bits, coded, planes, values + stage.count);
                stage.count += coded.done - before;
            }
        }
        const T* const taken = values + stage.first;
        stage.first += wanted;
        stage.count -= wanted;
        return taken;
    }
};

template <class Arch>
struct FrameDecoder {
    static void decode(DecodeJob& job) {
        if (job.bytesPerPixel == 1) {
            decodeGrey<int16_t>(job, static_cast<uint8_t*>(job.pixels));
        } else if (job.bytesPerPixel == 2 && job.narrow) {
            decodeGrey<int16_t>(job, static_cast<uint16_t*>(job.pixels));
        } else if (job.bytesPerPixel == 2) {
            decodeGrey<int32_t>(job, static_cast<uint16_t*>(job.pixels));
        } else {
            decodeColour(job);
        }
    }

private:
    template <class S, class V>
    KELT_INLINE static S limited(V value) {
        constexpr int kMax = static_cast<S>(~S{0});
        return static_cast<S>(value < 0 ? 0 : value > kMax ? kMax : value);
    }

    template <class T, class S>
    static void putGrey(const T* KELT_RESTRICT values, int count, S* KELT_RESTRICT pixels) {
        for (int x = 0; x < count; ++x)
            pixels[x] = limited<S>(values[x]);
    }
    static void putColour(const int16_t* KELT_RESTRICT luma, const int16_t* KELT_RESTRICT redDifference,
                          const int16_t* KELT_RESTRICT blueDifference, int count,
                          uint8_t* KELT_RESTRICT pixels) {
        for (int x = 0; x < count; ++x) {
            const int u = redDifference[x], v = blueDifference[x];
            const int green = luma[x] - ((u + v) >> 2);
            pixels[3 * x] = limited<uint8_t>(u + green);
            pixels[3 * x + 1] = limited<uint8_t>(green);
            pixels[3 * x + 2] = limited<uint8_t>(v + green);
        }
    }

    template <class T, class S>
    static void decodeGrey(DecodeJob& job, S* pixels) {
        ComponentDecoder<Arch, T> decoder{job.components[0], job.bits,   job.classes[0],
                                          job.levels,        job.planes, {}};
        T* const row = static_cast<T*>(job.components[0].row);
        for (int y = 0; y < job.height; ++y) {
            decoder.pullRow(0, job.width, row);
            putGrey(row, job.width, pixels);
            pixels += job.width;
        }
        for (int i = 0; i < Lifting<Arch, T>::kLanes; ++i) {
            const int least = decoder.extremes.least[i], greatest = decoder.extremes.greatest[i];
            if (least < job.least) job.least = least;
            if (greatest > job.greatest) job.greatest = greatest;
        }
    }

    static void decodeColour(const DecodeJob& job) {
        using Decoder = ComponentDecoder<Arch, int16_t>;
        Decoder decoders[3] = {{job.components[0], job.bits, job.classes[0], job.levels, job.planes, {}},
                               {job.components[1], job.bits, job.classes[1], job.levels, job.planes, {}},
                               {job.components[2], job.bits, job.classes[2], job.levels, job.planes, {}}};
        int16_t* planes[3];
        for (int c = 0; c < 3; ++c)
            planes[c] = static_cast<int16_t*>(job.components[c].row);
        auto* pixels = static_cast<uint8_t*>(job.pixels);
        for (int row = 0; row < job.height; ++row) {
            for (int c = 0; c < 3; ++c)
                decoders[c].pullRow(0, job.width, planes[c]);
            putColour(planes[0], planes[1], planes[2], job.width, pixels);
            pixels += 3 * static_cast<int64_t>(job.width);
        }
    }
};

}  // namespace dvq::kelt4::kernels
