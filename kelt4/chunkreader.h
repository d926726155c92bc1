#pragma once

#include <vector>

#include "kelt4/decoder.h"
#include "kelt4/kernel_jobs.h"

namespace dvq::kelt4 {

/// Reads the chunk records of a stream: which chunks there are, and where.
///
/// The length field of a significance chunk cannot be trusted: the high bits of a length that does not fit
/// are missing, and a damaged stream says anything. The chunk is delimited by reading its codes, and the
/// field then serves as a check. Where the field is 0 and the chunk might be empty or exactly fill the
/// field's range, one reading is tried and, when the stream contradicts it later, the other.
///
/// A stream that is sound has no need of that: readTrusting() takes the fields as they are, wherever no
/// longer chunk is possible, and confirm() says after the decoding whether the codes agree. Only when they do
/// not are the codes read for their ends first.
class ChunkReader {
public:
    /// The header's frame size has been checked. `stream` begins after the header. Classes below `firstClass`
    /// are passed over: only what tells where their chunks end is kept of them.
    ChunkReader(const CKeltHeader& header, std::span<const uint8_t> stream, int firstClass = 0);

    /// Reads as far as the stream makes sense, and no further than the wanted classes need, and fills in
    /// info's status, planes, levels, chunks and bits.
    void read(PayloadInfo& info);

    /// Does the same by the length fields; false when they do not make sense. What it says of a chunk that is
    /// cut off is not known yet.
    bool readTrusting(PayloadInfo& info);
    /// Whether the decoding of classes() that readTrusting() prepared met what the fields say. Completes what
    /// is said of a chunk that is cut off.
    bool confirm(PayloadInfo& info) const;

    /// Prepares classes() for a decoding.
    void start();

    int planes() const { return m_topPlane + 1; }
    int levels() const { return m_levels; }
    const BitSpan& bits() const { return m_bits; }
    CodedClass* classes(int component) { return m_classes[component].data(); }

private:
    /// A length field of 0 that can be read in two ways.
    struct Choice {
        bool nonEmpty;
        bool otherLeft;
    };
    /// A chunk that has bits: its first and where it ends. Of a chunk that is cut off `end` may lie beyond
    /// the stream.
    struct Place {
        uint64_t first;
        uint64_t end;
    };
    /// What has been read of a component and class.
    struct ReadClass {
        uint64_t size;
        uint64_t significantCount;
        /// The next planes.
        int significance;
        int refinement;
        /// Coefficients that are significant in the plane or above it, for planes whose significance is
        /// known.
        uint64_t significantFrom[kMaxPlanes];
        Place significanceOf[kMaxPlanes];
        Place refinementOf[kMaxPlanes];
    };
    enum class Step { kGoOn, kComplete, kCutOff, kDamaged };

    bool readStart();
    bool readFrom(uint64_t position, PayloadInfo& info);
    void clear();
    DecodeStatus readRecords(PayloadInfo& info);
    Step readRecord(PayloadInfo& info);
    Step readEndMark();
    Step readSignificance(ChunkInfo& chunk);
    Step readRefinement(ChunkInfo& chunk);
    Step trustLength(const ChunkInfo& chunk, Place& place);
    bool isTrusted(const ChunkInfo& chunk) const;
    bool isEmpty(const ChunkInfo& chunk);
    bool classesAreDone(int firstClass) const;
    bool otherReadingLeft();
    bool confirmCutOff(ChunkInfo& chunk, uint64_t candidates) const;
    uint64_t columnWords() const;
    unsigned fieldBits(int levelClass) const { return m_lengthBits - 2 * static_cast<unsigned>(levelClass); }
    bool take(unsigned count, uint64_t& value);

    BitSpan m_bits;
    int m_components;
    int m_width;
    int m_height;
    int m_maxPlanes;
    int m_firstClass;
    unsigned m_lengthBits;
    int m_topPlane = 0;
    int m_levels = 0;
    bool m_trusting = false;
    uint64_t m_position = 0;
    std::vector<Choice> m_choices;
    size_t m_choicesMet = 0;
    ReadClass m_read[kMaxComponents][kMaxClasses] = {};
    std::vector<CodedClass> m_classes[kMaxComponents];
};

}  // namespace dvq::kelt4
