#include "kelt4/chunkreader.h"

#include <algorithm>

#include "kelt4/kernels/bitsource.h"

namespace dvq::kelt4 {

namespace {

struct Baseline {};
using Source = kernels::BitSource<Baseline>;

/// The work spent on reading a damaged stream in other ways, as a multiple of its size and, for small ones,
/// at least.
constexpr uint64_t kReadings = 8;
constexpr uint64_t kSmallWork = uint64_t{1} << 18;
/// What a record costs beside its bits.
constexpr uint64_t kRecordWork = 64;

/// Reads past a significance chunk over a number of candidates as a kernel would, and counts its 1s.
ChunkEnd passSignificance(const BitSpan& bits, uint64_t position, uint64_t candidates, uint64_t& ones) {
    Source source{bits, position};
    for (uint64_t left = candidates;;) {
        const uint64_t start = source.position;
        uint64_t run = 0;
        const bool valid = source.readRun(run);
        if (valid && run < left && source.position < bits.end) {
            ++source.position;
            left -= run + 1;
            ++ones;
            continue;
        }
        if (valid && run == left && source.position <= bits.end) return {ChunkState::kWhole, source.position};
        const bool cutOff = source.position >= bits.end || (!valid && bits.end - start <= 57);
        return {cutOff ? ChunkState::kCutOff : ChunkState::kDamaged, start};
    }
}

}  // namespace

ChunkReader::ChunkReader(const Kernel& kernel, const CKeltHeader& header, std::span<const uint8_t> stream,
                         int firstClass)
    : m_kernel(kernel),
      m_bits{stream.data(), 8 * static_cast<uint64_t>(stream.size())},
      m_components(header.components()),
      m_width(header.width()),
      m_height(header.height()),
      m_maxPlanes(header.bytesPerPixel() == 2 ? 32 : 16),
      m_firstClass(firstClass),
      m_lengthBits(lengthFieldBits(m_width, m_height)),
      m_levels(levelsFor(m_width, m_height)) {}

void ChunkReader::read(PayloadInfo& info) {
    info.bitsPresent = m_bits.end;
    info.levels = m_levels;
    info.status = DecodeStatus::kTruncated;
    const bool started = readStart();
    if (!started && m_bits.end >= 16) info.status = DecodeStatus::kDamaged;
    info.topPlane = m_topPlane;
    if (!allocateColumns()) info.status = DecodeStatus::kNoMemory;
    if (!started || !m_memory) return;
    // Doubtful lengths cost a few readings at most, however the stream was made.
    uint64_t budget = kReadings * (m_bits.end + m_memoryWords) + kSmallWork;
    const uint64_t start = m_position;
    bool otherLeft = readFrom(start, info);
    if (!otherLeft) return;
    while (otherLeft && budget > 0) {
        budget -= std::min(budget, m_position + m_memoryWords + kRecordWork * info.chunks.size());
        clearColumns();
        otherLeft = readFrom(start, info);
    }
    if (info.status != DecodeStatus::kDamaged) return;
    // No reading makes sense to the end: fall back to the first.
    m_choices.clear();
    clearColumns();
    readFrom(start, info);
}

/// Reads the records; true when the stream is damaged and another reading is prepared.
bool ChunkReader::readFrom(uint64_t position, PayloadInfo& info) {
    m_position = position;
    info.chunks.clear();
    info.status = readRecords(info);
    info.bitsRead = m_position;
    return info.status == DecodeStatus::kDamaged && otherReadingLeft();
}

bool ChunkReader::readStart() {
    uint64_t top = 0, levels = 0;
    if (!take(8, top) || !take(8, levels)) return false;
    if (top >= static_cast<uint64_t>(m_maxPlanes) || levels != static_cast<uint64_t>(m_levels)) return false;
    m_topPlane = static_cast<int>(top);
    return true;
}

bool ChunkReader::allocateColumns() {
    constexpr size_t kMasks = 3;
    const auto perWord = kMasks + static_cast<size_t>(planes());
    const auto wordsOf = [&](int j) {
        return j < m_firstClass ? 0 : (classSize(m_width, m_height, m_levels, j) + 63) / 64;
    };
    m_memoryWords = 0;
    for (int j = 0; j <= m_levels; ++j)
        m_memoryWords += wordsOf(j) * perWord;
    m_memoryWords *= static_cast<size_t>(m_components);
    m_memory.reset(static_cast<uint64_t*>(std::calloc(std::max<size_t>(m_memoryWords, 1), sizeof(uint64_t))));
    if (!m_memory) return false;
    uint64_t* free = m_memory.get();
    for (int c = 0; c < m_components; ++c) {
        for (int j = 0; j <= m_levels; ++j) {
            const uint64_t words = wordsOf(j);
            m_classes[c][j] = {classSize(m_width, m_height, m_levels, j),
                               words,
                               free,
                               free + words,
                               free + 2 * words,
                               free + kMasks * words,
                               0,
                               0};
            free += perWord * words;
            m_next[c][j] = {m_topPlane, m_topPlane - 1, {}};
        }
    }
    return true;
}

void ChunkReader::clearColumns() {
    std::fill_n(m_memory.get(), m_memoryWords, 0);
    for (int c = 0; c < m_components; ++c) {
        for (int j = 0; j <= m_levels; ++j) {
            ClassColumns& columns = m_classes[c][j];
            columns.significantCount = columns.partlyRefined = 0;
            m_next[c][j] = {m_topPlane, m_topPlane - 1, {}};
        }
    }
}

DecodeStatus ChunkReader::readRecords(PayloadInfo& info) {
    m_choicesMet = 0;
    for (;;) {
        switch (readRecord(info)) {
            case Step::kGoOn:
                if (m_firstClass > 0 && classesAreDone(m_firstClass)) return DecodeStatus::kComplete;
                break;
            case Step::kComplete:
                return DecodeStatus::kComplete;
            case Step::kCutOff:
                return DecodeStatus::kTruncated;
            case Step::kDamaged:
                return DecodeStatus::kDamaged;
        }
    }
}

/// Takes the next bits; false, and nothing taken, when fewer are left.
bool ChunkReader::take(unsigned count, uint64_t& value) {
    if (m_bits.end - m_position < count) return false;
    Source source{m_bits, m_position};
    value = source.read(count);
    m_position = source.position;
    return true;
}

ChunkReader::Step ChunkReader::readRecord(PayloadInfo& info) {
    const uint64_t start = m_position;
    const auto cutOff = [&] {
        m_position = start;
        return Step::kCutOff;
    };
    uint64_t component = 0, levelClass = 0, kind = 0, length = 0;
    if (!take(2, component)) return cutOff();
    if (component == 3) return readEndMark();
    if (!take(4, levelClass) || !take(1, kind)) return cutOff();
    const int c = static_cast<int>(component);
    const int j = static_cast<int>(levelClass);
    if (c >= m_components || j > m_levels) return Step::kDamaged;
    if (!take(fieldBits(j), length)) return cutOff();

    Next& next = m_next[c][j];
    ChunkInfo chunk{c, j, kind == 1, kind == 1 ? next.refinement : next.significance, length, 0, m_position};
    const bool known = chunk.refinement ? chunk.plane >= std::max(next.significance, 0) : chunk.plane >= 0;
    if (!known) return Step::kDamaged;
    const Step step = chunk.refinement ? readRefinement(chunk) : readSignificance(chunk);
    chunk.bits = m_position - chunk.offset;
    info.chunks.push_back(chunk);
    return step;
}

/// A whole stream has every chunk of every class.
ChunkReader::Step ChunkReader::readEndMark() {
    uint64_t zeros = 0;
    const auto left = static_cast<unsigned>(std::min<uint64_t>(m_bits.end - m_position, 9));
    take(left, zeros);
    if (zeros != 0) return Step::kDamaged;
    return classesAreDone(0) ? Step::kComplete : Step::kDamaged;
}

/// Whether every chunk of the classes from one on has been read.
bool ChunkReader::classesAreDone(int firstClass) const {
    for (int c = 0; c < m_components; ++c) {
        for (int j = firstClass; j <= m_levels; ++j) {
            if (m_next[c][j].significance >= 0 || m_next[c][j].refinement >= 0) return false;
        }
    }
    return true;
}

ChunkEnd ChunkReader::decodeSignificance(const ChunkInfo& chunk, ClassColumns& columns) const {
    if (chunk.levelClass >= m_firstClass)
        return m_kernel.decodeSignificance({m_bits, m_position, &columns, chunk.plane});
    return passSignificance(m_bits, m_position, columns.size - columns.significantCount,
                            columns.significantCount);
}

ChunkEnd ChunkReader::decodeRefinement(const ChunkInfo& chunk, ClassColumns& columns,
                                       uint64_t refined) const {
    if (chunk.levelClass >= m_firstClass)
        return m_kernel.decodeRefinement({m_bits, m_position, &columns, chunk.plane});
    if (refined > m_bits.end - m_position) return {ChunkState::kCutOff, m_bits.end};
    return {ChunkState::kWhole, m_position + refined};
}

ChunkReader::Step ChunkReader::readSignificance(ChunkInfo& chunk) {
    ClassColumns& columns = m_classes[chunk.component][chunk.levelClass];
    Next& next = m_next[chunk.component][chunk.levelClass];
    if (!isEmpty(chunk)) {
        if (columns.significantCount == columns.size) return Step::kDamaged;
        const ChunkEnd end = decodeSignificance(chunk, columns);
        const uint64_t bits = end.position - m_position;
        m_position = end.position;
        if (end.state == ChunkState::kDamaged) return Step::kDamaged;
        if (end.state == ChunkState::kCutOff) return Step::kCutOff;
        if ((bits ^ chunk.lengthField) & ((uint64_t{1} << fieldBits(chunk.levelClass)) - 1))
            return Step::kDamaged;
    }
    next.significantFrom[next.significance--] = columns.significantCount;
    return Step::kGoOn;
}

ChunkReader::Step ChunkReader::readRefinement(ChunkInfo& chunk) {
    ClassColumns& columns = m_classes[chunk.component][chunk.levelClass];
    Next& next = m_next[chunk.component][chunk.levelClass];
    raiseRefined(columns, chunk.plane);
    const uint64_t refined = next.significantFrom[chunk.plane + 1];
    if ((refined ^ chunk.lengthField) & ((uint64_t{1} << fieldBits(chunk.levelClass)) - 1))
        return Step::kDamaged;
    if (refined > 0) {
        const ChunkEnd end = decodeRefinement(chunk, columns, refined);
        m_position = end.position;
        if (end.state != ChunkState::kWhole) return Step::kCutOff;
    }
    columns.partlyRefined = 0;
    --next.refinement;
    return Step::kGoOn;
}

/// Whether a significance chunk holds no bits. With a length field of 0 it may also hold exactly as many as
/// the field counts up to, if that many are possible: each candidate takes at most two bits, and the closing
/// run one.
bool ChunkReader::isEmpty(const ChunkInfo& chunk) {
    if (chunk.lengthField != 0) return false;
    const ClassColumns& columns = m_classes[chunk.component][chunk.levelClass];
    const uint64_t candidates = columns.size - columns.significantCount;
    const uint64_t range = uint64_t{1} << fieldBits(chunk.levelClass);
    if (candidates == 0 || 2 * candidates + 1 < range) return true;
    if (m_choicesMet == m_choices.size()) {
        uint64_t ones = 0;
        const ChunkEnd end = passSignificance(m_bits, m_position, candidates, ones);
        const bool whole = end.state == ChunkState::kWhole;
        const bool fits = whole && (end.position - m_position) % range == 0;
        const bool cutOff = !whole && m_bits.end - m_position < 2 * candidates + 1;
        m_choices.push_back({fits, fits || cutOff});
    }
    return !m_choices[m_choicesMet++].nonEmpty;
}

/// Prepares the next reading: the latest doubtful length that has another way to be read is read that way.
bool ChunkReader::otherReadingLeft() {
    while (!m_choices.empty() && !m_choices.back().otherLeft)
        m_choices.pop_back();
    if (m_choices.empty()) return false;
    m_choices.back() = {!m_choices.back().nonEmpty, false};
    return true;
}

/// Makes `refined` the coefficients that are significant above a plane, given those above the plane over it.
void ChunkReader::raiseRefined(ClassColumns& columns, int plane) {
    const uint64_t* const above = columns.planes + static_cast<uint64_t>(plane + 1) * columns.words;
    for (uint64_t w = 0; w < columns.words; ++w)
        columns.refined[w] |= above[w];
}

void ChunkReader::fillMiddles() {
    for (int c = 0; c < m_components; ++c) {
        for (int j = m_firstClass; j <= m_levels; ++j) {
            const int plane = m_next[c][j].refinement;
            if (plane >= 0 && m_classes[c][j].significantCount > 0) fillMiddles(m_classes[c][j], plane);
        }
    }
}

/// Sets the highest unknown bit of every significant coefficient; `plane` is the one whose refinement is
/// missing.
void ChunkReader::fillMiddles(ClassColumns& columns, int plane) {
    raiseRefined(columns, plane);
    const auto column = [&](int p) { return columns.planes + static_cast<uint64_t>(p) * columns.words; };
    // Below the plane a column holds only the highest bits of coefficients.
    for (int p = 1; p <= plane; ++p) {
        const uint64_t* const from = column(p);
        uint64_t* const to = column(p - 1);
        for (uint64_t w = 0; w < columns.words; ++w)
            to[w] |= from[w] & ~columns.refined[w];
    }
    uint64_t known = columns.partlyRefined;
    for (uint64_t w = 0; w < columns.words; ++w) {
        uint64_t unknown = columns.refined[w];
        for (; unknown != 0 && known > 0; --known)
            unknown &= unknown - 1;
        column(plane)[w] |= unknown;
        if (plane > 0) column(plane - 1)[w] |= columns.refined[w] & ~unknown;
    }
}

}  // namespace dvq::kelt4
