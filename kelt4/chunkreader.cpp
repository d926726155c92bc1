#include "kelt4/chunkreader.h"

#include <algorithm>

#include "kelt4/kernels/bitsource.h"
#include "kelt4/kernels/eventwindow.h"

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

enum class ChunkState { kWhole, kCutOff, kDamaged };

/// Where the codes of a chunk end, or the last whole one.
struct ChunkEnd {
    ChunkState state;
    uint64_t position;
};

/// Reads past a significance chunk over a number of candidates and counts its 1s.
ChunkEnd passSignificance(const BitSpan& bits, uint64_t position, uint64_t candidates, uint64_t& ones) {
    Source source{bits, position};
    for (uint64_t left = candidates;;) {
        // Several runs at a time, far from the end of candidates and stream.
        while (left > kernels::EventWindows::kMaxSpan && bits.end - source.position >= Source::kFastBits) {
            const kernels::EventWindow window =
                kernels::kEventWindows.entries[source.peekFast() % kernels::EventWindows::kCount];
            if (window.packed == 0) break;
            source.position += window.bits();
            left -= window.span();
            ones += window.count();
        }
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

ChunkReader::ChunkReader(const CKeltHeader& header, std::span<const uint8_t> stream, int firstClass)
    : m_bits{stream.data(), 8 * static_cast<uint64_t>(stream.size())},
      m_components(header.components()),
      m_width(header.width()),
      m_height(header.height()),
      m_maxPlanes(header.bytesPerPixel() == 2 ? 32 : 16),
      m_firstClass(firstClass),
      m_lengthBits(lengthFieldBits(m_width, m_height)),
      m_levels(levelsFor(m_width, m_height)) {}

void ChunkReader::read(PayloadInfo& info) {
    m_trusting = false;
    m_choices.clear();
    m_position = 0;
    info.chunks.clear();
    info.bitsPresent = m_bits.end;
    info.levels = m_levels;
    info.status = DecodeStatus::kTruncated;
    const bool started = readStart();
    if (!started && m_bits.end >= 16) info.status = DecodeStatus::kDamaged;
    info.topPlane = m_topPlane;
    clear();
    if (!started) return;
    // Doubtful lengths cost a few readings at most, however the stream was made.
    const uint64_t frameWork = columnWords();
    uint64_t budget = kReadings * (m_bits.end + frameWork) + kSmallWork;
    const uint64_t start = m_position;
    bool otherLeft = readFrom(start, info);
    if (!otherLeft) return;
    while (otherLeft && budget > 0) {
        budget -= std::min(budget, m_position + frameWork + kRecordWork * info.chunks.size());
        clear();
        otherLeft = readFrom(start, info);
    }
    if (info.status != DecodeStatus::kDamaged) return;
    // No reading makes sense to the end: fall back to the first.
    m_choices.clear();
    clear();
    readFrom(start, info);
}

bool ChunkReader::readTrusting(PayloadInfo& info) {
    m_trusting = true;
    m_position = 0;
    info.bitsPresent = m_bits.end;
    info.levels = m_levels;
    if (!readStart()) return false;
    info.topPlane = m_topPlane;
    clear();
    readFrom(m_position, info);
    return info.status != DecodeStatus::kDamaged;
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

/// What the wanted classes' bits and masks take in words: the work of a reading beside the stream's size.
uint64_t ChunkReader::columnWords() const {
    constexpr uint64_t kMasks = 3;
    uint64_t words = 0;
    for (int j = m_firstClass; j <= m_levels; ++j)
        words += (classSize(m_width, m_height, m_levels, j) + 63) / 64;
    return words * (kMasks + static_cast<uint64_t>(planes())) * static_cast<uint64_t>(m_components);
}

void ChunkReader::clear() {
    for (int c = 0; c < m_components; ++c) {
        for (int j = 0; j <= m_levels; ++j) {
            m_read[c][j] = {};
            m_read[c][j].size = classSize(m_width, m_height, m_levels, j);
            m_read[c][j].significance = m_topPlane;
            m_read[c][j].refinement = m_topPlane - 1;
        }
    }
}

void ChunkReader::start() {
    for (int c = 0; c < m_components; ++c) {
        m_classes[c].assign(static_cast<size_t>(m_levels) + 1, {});
        for (int j = m_firstClass; j <= m_levels; ++j) {
            const ReadClass& read = m_read[c][j];
            CodedClass& coded = m_classes[c][static_cast<size_t>(j)];
            coded.size = read.size;
            coded.unrefined = read.refinement;
            for (int p = 0; p <= m_topPlane; ++p) {
                const Place &significance = read.significanceOf[p], &refinement = read.refinementOf[p];
                CodedPlane& plane = coded.planes[p];
                plane.hasSignificance = significance.end > significance.first;
                plane.events.position = significance.first;
                plane.events.end = std::min(significance.end, m_bits.end);
                plane.hasRefinement = refinement.first != 0;
                plane.refinement = refinement.first;
                if (p == coded.unrefined)
                    coded.partlyRefined = std::min(refinement.end, m_bits.end) - refinement.first;
            }
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

    const ReadClass& next = m_read[c][j];
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
            if (m_read[c][j].significance >= 0 || m_read[c][j].refinement >= 0) return false;
        }
    }
    return true;
}

ChunkReader::Step ChunkReader::readSignificance(ChunkInfo& chunk) {
    ReadClass& read = m_read[chunk.component][chunk.levelClass];
    Place& place = read.significanceOf[chunk.plane];
    if (isTrusted(chunk)) {
        const Step step = trustLength(chunk, place);
        if (step == Step::kGoOn) --read.significance;
        return step;
    }
    if (!isEmpty(chunk)) {
        if (read.significantCount == read.size) return Step::kDamaged;
        const ChunkEnd end =
            passSignificance(m_bits, m_position, read.size - read.significantCount, read.significantCount);
        place = {m_position, end.position};
        m_position = end.position;
        if (end.state == ChunkState::kDamaged) return Step::kDamaged;
        if (end.state == ChunkState::kCutOff) return Step::kCutOff;
        const uint64_t bits = place.end - place.first;
        if ((bits ^ chunk.lengthField) & ((uint64_t{1} << fieldBits(chunk.levelClass)) - 1))
            return Step::kDamaged;
    }
    read.significantFrom[read.significance--] = read.significantCount;
    return Step::kGoOn;
}

ChunkReader::Step ChunkReader::readRefinement(ChunkInfo& chunk) {
    ReadClass& read = m_read[chunk.component][chunk.levelClass];
    Place& place = read.refinementOf[chunk.plane];
    Step step = Step::kGoOn;
    if (isTrusted(chunk)) {
        step = trustLength(chunk, place);
    } else {
        const uint64_t refined = read.significantFrom[chunk.plane + 1];
        if ((refined ^ chunk.lengthField) & ((uint64_t{1} << fieldBits(chunk.levelClass)) - 1))
            return Step::kDamaged;
        place = {m_position, m_position + refined};
        if (place.end > m_bits.end) step = Step::kCutOff;
        m_position = std::min(place.end, m_bits.end);
    }
    if (step == Step::kGoOn) --read.refinement;
    return step;
}

/// Whether the length field of a chunk is taken for its length. No chunk of the class can be longer then:
/// each candidate takes at most two bits, and the closing run one. Classes that are not decoded cannot be
/// confirmed.
bool ChunkReader::isTrusted(const ChunkInfo& chunk) const {
    const uint64_t longest = 2 * m_read[chunk.component][chunk.levelClass].size + 1;
    return m_trusting && chunk.levelClass >= m_firstClass &&
           longest < uint64_t{1} << fieldBits(chunk.levelClass);
}

ChunkReader::Step ChunkReader::trustLength(const ChunkInfo& chunk, Place& place) {
    place = {m_position, m_position + chunk.lengthField};
    m_position = std::min(place.end, m_bits.end);
    return place.end > m_bits.end ? Step::kCutOff : Step::kGoOn;
}

bool ChunkReader::confirm(PayloadInfo& info) const {
    bool sound = true;
    for (ChunkInfo& chunk : info.chunks) {
        if (!isTrusted(chunk)) continue;
        const ReadClass& read = m_read[chunk.component][chunk.levelClass];
        const CodedPlane& plane =
            m_classes[chunk.component][static_cast<size_t>(chunk.levelClass)].planes[chunk.plane];
        if (chunk.refinement) {
            sound = sound && plane.refinement == read.refinementOf[chunk.plane].end;
        } else if (read.significanceOf[chunk.plane].end > m_bits.end) {
            sound = sound && confirmCutOff(chunk, plane.events.asked);
            info.bitsRead = chunk.offset + chunk.bits;
        } else if (chunk.lengthField > 0) {
            const EventState& events = plane.events;
            sound = sound && events.closed && events.asked > 0 && events.told == events.asked;
        }
    }
    return sound;
}

/// Finds the last whole code of a significance chunk.
bool ChunkReader::confirmCutOff(ChunkInfo& chunk, uint64_t candidates) const {
    uint64_t ones = 0;
    const ChunkEnd end = passSignificance(m_bits, chunk.offset, candidates, ones);
    chunk.bits = end.position - chunk.offset;
    return candidates > 0 && end.state == ChunkState::kCutOff;
}

/// Whether a significance chunk holds no bits. With a length field of 0 it may also hold exactly as many as
/// the field counts up to, if that many are possible: each candidate takes at most two bits, and the closing
/// run one.
bool ChunkReader::isEmpty(const ChunkInfo& chunk) {
    if (chunk.lengthField != 0) return false;
    const ReadClass& read = m_read[chunk.component][chunk.levelClass];
    const uint64_t candidates = read.size - read.significantCount;
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

}  // namespace dvq::kelt4
