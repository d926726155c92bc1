#include "kelt4/fastencoder.h"

#include <algorithm>
#include <bit>
#include <utility>
#include <vector>

#include "kelt4/chunkorder.h"
#include "kelt4/kernel_jobs.h"

namespace dvq::kelt4 {

/// The memory of one frame's coding.
struct FrameScratch {
    ChunkStore chunks;
    RowBuffers rows;
    std::vector<unsigned char> stages;

    size_t heldBytes() const { return chunks.heldBytes() + rows.heldBytes() + stages.capacity(); }
};

namespace {

/// What a thread keeps for its next frame; more than this is given back to the system.
constexpr size_t kKeptBytes = size_t{64} << 20;
thread_local std::unique_ptr<FrameScratch> t_scratch;

/// Gives the classes stages that hold a batch besides a row, where those of the rows hold a block.
void widenStages(FrameScratch& scratch, int components, int width, int height, int levels,
                 size_t elementSize) {
    constexpr size_t kAlignment = 64;
    const auto bytesOf = [&](int level) {
        // At most a row and a half arrive at a time on top of an unfinished batch.
        const auto side = static_cast<size_t>(latticeSide(width, level));
        const size_t all = side * static_cast<size_t>(latticeSide(height, level));
        const size_t elements = std::min<size_t>(all, kLargestBatch) + 2 * side + 4 * kBlock;
        return (elements * elementSize + kAlignment - 1) / kAlignment * kAlignment;
    };
    size_t bytes = kAlignment;
    for (int j = 0; j <= levels; ++j)
        bytes += static_cast<size_t>(components) * bytesOf(j);
    if (scratch.stages.size() < bytes) scratch.stages.resize(bytes);
    const auto address = reinterpret_cast<uintptr_t>(scratch.stages.data());
    unsigned char* stage = scratch.stages.data() + (kAlignment - address % kAlignment) % kAlignment;
    for (int c = 0; c < components; ++c) {
        for (int j = 0; j <= levels; ++j) {
            scratch.rows.components()[c].classes[j].values = stage;
            stage += bytesOf(j);
        }
    }
}

/// No sample has a bit that this has not.
unsigned bitsOfSamples(const void* pixels, int bytesPerPixel, int width, int height) {
    if (bytesPerPixel != 2) return 0xFF;
    const auto* const samples = static_cast<const uint16_t*>(pixels);
    const size_t count = static_cast<size_t>(width) * static_cast<size_t>(height);
    uint16_t any = 0;
    for (size_t i = 0; i < count; ++i)
        any |= samples[i];
    return any;
}

}  // namespace

FastEncoder::FastEncoder(const Kernel& kernel, int bytesPerPixel, int width, int height)
    : m_kernel(kernel),
      m_components(bytesPerPixel == 3 ? 3 : 1),
      m_width(width),
      m_height(height),
      m_levels(levelsFor(width, height)),
      m_scratch(std::move(t_scratch)) {
    if (!m_scratch) m_scratch = std::make_unique<FrameScratch>();
    m_scratch->chunks.clear(m_components, m_levels);
}

FastEncoder::~FastEncoder() {
    if (m_scratch->heldBytes() <= kKeptBytes) t_scratch = std::move(m_scratch);
}

void FastEncoder::transformFrom(const void* src, int bytesPerPixel) {
    if (bytesPerPixel == 3) throw 4;
    if (bytesPerPixel == 1 || bytesPerPixel == 2) encode(src, bytesPerPixel);
}

const void* FastEncoder::copyAndConvertFrom(const void* src, int bytesPerPixel) {
    if (bytesPerPixel < 1 || bytesPerPixel > 3 || (bytesPerPixel == 3) != (m_components == 3)) return src;
    encode(src, bytesPerPixel);
    return static_cast<const unsigned char*>(src) +
           static_cast<size_t>(m_width) * static_cast<size_t>(m_height) * static_cast<size_t>(bytesPerPixel);
}

void FastEncoder::kill() {
    m_stop = true;
    __atomic_store_n(&m_kill, true, __ATOMIC_RELAXED);
}

void FastEncoder::encode(const void* src, int bytesPerPixel) {
    static_assert(std::has_single_bit(kNarrowSamples));
    static_assert(std::has_single_bit(kGuardedSamples));
    const unsigned bits = bitsOfSamples(src, bytesPerPixel, m_width, m_height);
    const auto run = [&](bool narrow, bool guarded) {
        if (m_coded) m_scratch->chunks.clear(m_components, m_levels);
        m_coded = true;
        const size_t elementSize = narrow ? 2 : 4;
        m_scratch->rows.prepare(m_components, m_width, m_height, m_levels, elementSize);
        widenStages(*m_scratch, m_components, m_width, m_height, m_levels, elementSize);
        return m_kernel.encode({src, bytesPerPixel, m_width, m_height, m_levels, narrow, guarded,
                                m_scratch->rows.components(), &m_scratch->chunks, &m_kill});
    };
    if (bits >= kGuardedSamples || !run(true, bits >= kNarrowSamples)) run(false, false);
}

int FastEncoder::writeWavelet(CBitWriter& out, int rowLimit) {
    if (!passRows(rowLimit)) return 8;
    const int topPlane = findTopPlane();
    const uint64_t estimate = estimateBits(topPlane);
    out.setSize((estimate + estimate / 20 + 7) >> 3);
    writeStream(out, topPlane);
    return 0;
}

/// The coefficients are coded already; what remains of a row's turn is that a caller may pause after it.
bool FastEncoder::passRows(int rowLimit) {
    for (; m_resumeComponent < m_components; ++m_resumeComponent) {
        while (m_resumeRow < m_height) {
            const int y = m_resumeRow++;
            if (m_stop.exchange(false) || (rowLimit < 0 && -static_cast<int64_t>(rowLimit) == y))
                return false;
        }
        m_resumeRow = 0;
    }
    return true;
}

int FastEncoder::findTopPlane() const {
    for (int plane = kFastPlanes - 1; plane > 0; --plane) {
        for (int c = 0; c < m_components; ++c) {
            for (int j = 0; j <= m_levels; ++j) {
                if (m_scratch->chunks.at(c, j).planes[plane].significant > 0) return plane;
            }
        }
    }
    return 0;
}

uint64_t FastEncoder::estimateBits(int topPlane) const {
    const unsigned lengthBits = lengthFieldBits(m_width, m_height);
    uint64_t estimate = 19;
    for (int c = 0; c < m_components; ++c) {
        for (int j = 0; j <= m_levels; ++j) {
            for (int p = 0; p <= topPlane; ++p) {
                const PlaneChunks& plane = m_scratch->chunks.at(c, j).planes[p];
                estimate += 2 * (12 + lengthBits - 2 * static_cast<unsigned>(j)) +
                            bitCount(plane.significance) + bitCount(plane.refinement);
            }
        }
    }
    return estimate;
}

void FastEncoder::writeStream(CBitWriter& out, int topPlane) const {
    const unsigned lengthBits = lengthFieldBits(m_width, m_height);
    out.putBits(static_cast<unsigned>(topPlane), 8);
    out.putBits(static_cast<unsigned>(m_levels), 8);
    ChunkOrder order(m_scratch->chunks, m_components, m_levels, topPlane);
    ChunkChoice choice{};
    while (order.next(choice)) {
        const PlaneChunks& plane =
            m_scratch->chunks.at(choice.component, choice.levelClass).planes[choice.plane];
        const BitSink& sink = choice.refinement ? plane.refinement : plane.significance;
        const auto start =
            static_cast<unsigned>(choice.component | choice.levelClass << 2 | choice.refinement << 6);
        out.putBits(start, 7);
        out.putBits(bitCount(sink), lengthBits - 2 * static_cast<unsigned>(choice.levelClass));
        out.append(sink.words, bitCount(sink));
    }
    out.putBits(3, 2);
    out.putBits(0, 9);
    out.storePartial();
}

}  // namespace dvq::kelt4
