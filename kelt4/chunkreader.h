#pragma once

#include <cstdlib>
#include <memory>
#include <vector>

#include "kelt4/decoder.h"
#include "kelt4/kernel_jobs.h"

namespace dvq::kelt4 {

/// Reads the chunk records of a stream into bit columns.
///
/// The length field of a significance chunk cannot be trusted: the high bits of a length that does not fit
/// are missing. The chunk is delimited by decoding it, and the field then serves as a check. Where the field
/// is 0 and the chunk might be empty or exactly fill the field's range, one reading is tried and, when the
/// stream contradicts it later, the other.
class ChunkReader {
public:
    /// The header's frame size has been checked. `stream` begins after the header. Classes below `firstClass`
    /// are passed over: only what tells where their chunks end is kept of them.
    ChunkReader(const Kernel& kernel, const CKeltHeader& header, std::span<const uint8_t> stream,
                int firstClass = 0);

    /// Reads as far as the stream makes sense, and no further than the wanted classes need, and fills in
    /// info's status, planes, levels, chunks and bits.
    void read(PayloadInfo& info);

    /// Sets the unknown low bits to the middle of their range. Once, after read().
    void fillMiddles();

    int planes() const { return m_topPlane + 1; }
    int levels() const { return m_levels; }
    const ClassColumns* classes(int component) const { return m_classes[component]; }

private:
    /// A length field of 0 that can be read in two ways.
    struct Choice {
        bool nonEmpty;
        bool otherLeft;
    };
    /// The next planes of a component and class.
    struct Next {
        int significance;
        int refinement;
        /// Coefficients that are significant in the plane or above it, for planes whose significance is
        /// known.
        uint64_t significantFrom[32];
    };
    enum class Step { kGoOn, kComplete, kCutOff, kDamaged };

    bool readStart();
    bool readFrom(uint64_t position, PayloadInfo& info);
    bool allocateColumns();
    void clearColumns();
    DecodeStatus readRecords(PayloadInfo& info);
    Step readRecord(PayloadInfo& info);
    Step readEndMark();
    Step readSignificance(ChunkInfo& chunk);
    Step readRefinement(ChunkInfo& chunk);
    bool isEmpty(const ChunkInfo& chunk);
    ChunkEnd decodeSignificance(const ChunkInfo& chunk, ClassColumns& columns) const;
    ChunkEnd decodeRefinement(const ChunkInfo& chunk, ClassColumns& columns, uint64_t refined) const;
    bool classesAreDone(int firstClass) const;
    bool otherReadingLeft();
    static void raiseRefined(ClassColumns& columns, int plane);
    static void fillMiddles(ClassColumns& columns, int plane);
    unsigned fieldBits(int levelClass) const { return m_lengthBits - 2 * static_cast<unsigned>(levelClass); }
    bool take(unsigned count, uint64_t& value);

    const Kernel& m_kernel;
    BitSpan m_bits;
    int m_components;
    int m_width;
    int m_height;
    int m_maxPlanes;
    int m_firstClass;
    unsigned m_lengthBits;
    int m_topPlane = 0;
    int m_levels = 0;
    uint64_t m_position = 0;
    std::vector<Choice> m_choices;
    size_t m_choicesMet = 0;
    Next m_next[kMaxComponents][kMaxClasses] = {};
    ClassColumns m_classes[kMaxComponents][kMaxClasses] = {};
    struct Free {
        void operator()(void* block) const { std::free(block); }
    };
    std::unique_ptr<uint64_t[], Free> m_memory;
    size_t m_memoryWords = 0;
};

}  // namespace dvq::kelt4
