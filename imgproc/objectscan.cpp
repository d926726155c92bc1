#include "imgproc/objectscan.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dctag.h>

#include <algorithm>
#include <cstdio>
#include <limits>
#include <vector>

#include "hsutils/Utils.h"
#include "hsutils/transfersyntaxes.h"
#include "imgproc/byteorder.h"
#include "imgproc/bytesource.h"
#include "imgproc/elementheader.h"
#include "imgproc/groupssearch.h"
#include "imgproc/objectlimits.h"
#include "privateblock/privatedictionary.h"

namespace {

using Refusal = std::optional<RefusalText>;

constexpr uint64_t kOpenEnd = std::numeric_limits<uint64_t>::max();
constexpr size_t kPreamble = 128;
constexpr std::string_view kMagic = "DICM";
constexpr uint16_t kMetaGroup = 0x0002;
/// A text longer than this is neither a transfer syntax nor the name of a private block's creator.
constexpr size_t kLongestName = 64;

std::string nameOf(const DcmTagKey& tag) {
    char text[12];
    std::snprintf(text, sizeof text, "(%04x,%04x)", tag.getGroup(), tag.getElement());
    return text;
}

struct PrivateCreator {
    uint16_t group;
    uint16_t block;
    std::string name;
};

/// Something that holds elements, items or fragments, and that the scan is inside of.
struct Level {
    enum Kind { MetaHeader, DataSet, Item, Sequence, Fragments };

    Kind kind;
    ElementEncoding encoding;
    uint64_t end;         ///< position where it ends, kOpenEnd when a marker or the file ends it
    uint64_t limit;       ///< position that nothing in it may pass
    DcmTagKey tag{};      ///< of the sequence
    DcmTagKey highest{};  ///< of the elements so far
    uint64_t elements = 0;
    std::vector<PrivateCreator> creators{};
};

/// One pass over the data set or the meta header in `bytes`.
class Scan {
public:
    explicit Scan(ByteSource& bytes) : m_bytes(bytes) {}

    Refusal metaHeader();
    Refusal dataSet(ElementEncoding encoding);

    /// Notes where the data set's foreign elements lie.
    void noteForeign(LeftOut* foreign) { m_foreign = foreign; }

    /// (0002,0010), empty when there is none.
    const std::string& transferSyntax() const { return m_transferSyntax; }
    std::optional<FrameGroups> frameGroups() const { return m_groups.place(); }

private:
    Refusal run();
    Refusal step();
    bool closesHere() const;
    Refusal endOfFile() const;
    Refusal element(const ElementHeader& header);
    Refusal marker(const ElementHeader& header);
    Refusal item(const ElementHeader& header);
    Refusal value(const ElementHeader& header);
    Refusal skipValue(const ElementHeader& header);
    void noteIfForeign(uint16_t group);
    Refusal countSteps(const DcmTagKey& tag);
    Refusal enter(Level::Kind kind, const ElementHeader& header, ElementEncoding encoding);
    bool isSequence(const ElementHeader& header) const;
    DcmEVR knownVr(const DcmTagKey& tag) const;
    void takeNote(const ElementHeader& header);
    void noteGroups(const DcmTagKey& tag);
    void leaveLevel(uint64_t contentEnd);
    bool nextIsMeta();
    Refusal cutShort(const std::string& where) const;

    ByteSource& m_bytes;
    LeftOut* m_foreign = nullptr;
    std::vector<Level> m_levels;
    bool m_stopped = false;
    uint64_t m_elements = 0;
    uint64_t m_steps = 0;
    int m_depth = 0;
    std::string m_transferSyntax;
    uint64_t m_header = 0;  ///< position of the header in work
    GroupsSearch m_groups;
};

Refusal Scan::cutShort(const std::string& where) const {
    if (!m_bytes.failure().empty()) return m_bytes.failure();
    return "ends in the middle of " + where + ": it is truncated, or no DICOM object";
}

/// In either byte order, as the parser looks for it.
bool Scan::nextIsMeta() {
    const auto next = m_bytes.look(2);
    return next.size() == 2 && (twoBytes(next, false) == kMetaGroup || twoBytes(next, true) == kMetaGroup);
}

Refusal Scan::metaHeader() {
    const auto start = m_bytes.look(kPreamble + kMagic.size());
    if (start.size() == kPreamble + kMagic.size() &&
        std::equal(kMagic.begin(), kMagic.end(), start.begin() + kPreamble))
        m_bytes.skip(start.size());
    if (!nextIsMeta()) return std::nullopt;
    const ElementEncoding encoding = guessEncoding(m_bytes.look(6));
    m_levels.push_back({Level::MetaHeader, encoding, kOpenEnd, kOpenEnd});
    return run();
}

Refusal Scan::dataSet(ElementEncoding encoding) {
    m_levels.push_back({Level::DataSet, encoding, kOpenEnd, kOpenEnd});
    return run();
}

Refusal Scan::run() {
    while (!m_levels.empty() && !m_stopped) {
        if (m_levels.back().kind == Level::MetaHeader && m_levels.back().end == kOpenEnd && !nextIsMeta()) {
            m_levels.pop_back();
        } else if (m_bytes.position() >= m_levels.back().end) {
            leaveLevel(m_bytes.position());
        } else if (m_bytes.look(1).empty()) {
            return endOfFile();
        } else if (Refusal refusal = step()) {
            return refusal;
        }
    }
    m_stopped = false;
    m_levels.clear();
    return std::nullopt;
}

/// An item ends with the file, and so does all that holds it unless a sequence is still to go on.
Refusal Scan::endOfFile() const {
    if (!m_bytes.failure().empty()) return m_bytes.failure();
    for (const Level& level : m_levels) {
        const bool holdsItems = level.kind == Level::Sequence || level.kind == Level::Fragments;
        if (holdsItems && m_bytes.position() < level.end) return cutShort("sequence " + nameOf(level.tag));
    }
    return std::nullopt;
}

Refusal Scan::step() {
    const Level& level = m_levels.back();
    const bool holdsItems = level.kind == Level::Sequence || level.kind == Level::Fragments;
    m_header = m_bytes.position();
    const auto header =
        holdsItems ? readItemHeader(m_bytes, level.encoding) : readElementHeader(m_bytes, level.encoding);
    if (!header) return cutShort("an element");
    if (++m_elements > objectlimits::kElements)
        return RefusalText("holds more than " + std::to_string(objectlimits::kElements) + " elements",
                           ErrorClass::limit);
    if (m_bytes.position() > level.limit)
        return nameOf(header->tag) + " begins within an item or sequence and ends beyond it";
    return holdsItems ? item(*header) : element(*header);
}

/// In a sequence or among the fragments of pixel data.
Refusal Scan::item(const ElementHeader& header) {
    const Level& level = m_levels.back();
    if (header.tag == DCM_SequenceDelimitationItem) {
        leaveLevel(m_header);
        return std::nullopt;
    }
    if (header.tag != DCM_Item)
        return "sequence " + nameOf(level.tag) + " holds " + nameOf(header.tag) +
               " where an item ought to be";
    if (level.kind == Level::Sequence) return enter(Level::Item, header, level.encoding);
    if (header.length == DCM_UndefinedLength) return "the pixel data holds a fragment of undefined length";
    return skipValue(header);
}

Refusal Scan::element(const ElementHeader& header) {
    if (header.tag == DCM_Item || header.tag == DCM_ItemDelimitationItem ||
        header.tag == DCM_SequenceDelimitationItem)
        return marker(header);
    if (header.vr == EVR_na) return nameOf(header.tag) + " has a value representation of no element";
    noteGroups(header.tag);
    if (Refusal refusal = countSteps(header.tag)) return refusal;
    const Level& level = m_levels.back();
    if (isSequence(header)) {
        const bool known = header.vr == EVR_SQ || !level.encoding.explicitVr;
        if (level.kind == Level::DataSet && header.tag == DCM_PerFrameFunctionalGroupsSequence)
            m_groups.enter(m_bytes.position(), known);
        return enter(Level::Sequence, header, known ? level.encoding : kEncodingWithinUnknown);
    }
    return value(header);
}

void Scan::noteGroups(const DcmTagKey& tag) {
    const Level& level = m_levels.back();
    if (level.kind == Level::DataSet)
        m_groups.element(tag, m_header, level.elements > 0 && tag > level.highest);
    else if (m_groups.inside())
        m_groups.content(tag);
}

/// The innermost level ends, a sequence's items at `contentEnd`.
void Scan::leaveLevel(uint64_t contentEnd) {
    if (m_levels.back().kind == Level::Sequence) --m_depth;
    m_levels.pop_back();
    if (m_levels.size() == 1 && m_groups.inside()) m_groups.leave(contentEnd, m_bytes.position());
}

/// An item ends with its marker whatever its length says, and so does the data set.
Refusal Scan::marker(const ElementHeader& header) {
    const Level::Kind kind = m_levels.back().kind;
    if (header.tag != DCM_ItemDelimitationItem || kind == Level::MetaHeader)
        return nameOf(header.tag) + " stands where an element ought to be";
    m_stopped = kind == Level::DataSet;
    m_levels.pop_back();
    return std::nullopt;
}

Refusal Scan::value(const ElementHeader& header) {
    if (header.length == DCM_UndefinedLength) {
        if (header.tag == DCM_PixelData) return enter(Level::Fragments, header, m_levels.back().encoding);
        return nameOf(header.tag) + " has no length, and is no sequence";
    }
    takeNote(header);
    Refusal refusal = skipValue(header);
    if (!refusal) noteIfForeign(header.tag.getGroup());
    return refusal;
}

/// The first element of all stays: by it the parser finds the end of the meta header, and guesses the
/// encoding of a data set where that is not told.
void Scan::noteIfForeign(uint16_t group) {
    const Level& level = m_levels.back();
    if (m_foreign != nullptr && level.kind == Level::DataSet && level.elements > 1 && isForeignGroup(group))
        m_foreign->add(m_header, m_bytes.position());
}

Refusal Scan::skipValue(const ElementHeader& header) {
    const uint64_t limit = m_levels.back().limit;
    if (header.length > limit - m_bytes.position())
        return nameOf(header.tag) + " has " + std::to_string(header.length) + " bytes, but " +
               std::to_string(limit - m_bytes.position()) + " are left in what holds it";
    if (!m_bytes.skip(header.length)) return cutShort(nameOf(header.tag));
    return std::nullopt;
}

Refusal Scan::enter(Level::Kind kind, const ElementHeader& header, ElementEncoding encoding) {
    const Level& parent = m_levels.back();
    if (kind == Level::Sequence && ++m_depth > objectlimits::kNestingDepth)
        return RefusalText(
            "sequences are nested more than " + std::to_string(objectlimits::kNestingDepth) + " levels deep",
            ErrorClass::limit);
    uint64_t end = kOpenEnd;
    if (header.length != DCM_UndefinedLength) {
        end = m_bytes.position() + header.length;
        if (end > parent.limit)
            return (kind == Level::Item ? "an item" : "sequence " + nameOf(header.tag)) + " has " +
                   std::to_string(header.length) + " bytes, but " +
                   std::to_string(parent.limit - m_bytes.position()) + " are left in what holds it";
    }
    // A sequence that tells too short a length is not rare, and does no harm: its last item ends it.
    const uint64_t limit = kind == Level::Sequence ? parent.limit : std::min(end, parent.limit);
    m_levels.push_back({kind, encoding, end, limit, header.tag});
    return std::nullopt;
}

/// The parser keeps elements sorted: it looks for the place of each from the last one backwards. For a
/// private element it looks through all blocks that its item has reserved so far.
Refusal Scan::countSteps(const DcmTagKey& tag) {
    constexpr uint64_t kLogging = 1000;
    Level& level = m_levels.back();
    if (tag.getGroup() % 2 != 0) m_steps += level.creators.size();
    if (level.elements > 0 && !(tag > level.highest))
        m_steps += level.elements + kLogging;
    else
        level.highest = tag;
    ++level.elements;
    if (m_steps <= objectlimits::kSearchSteps) return std::nullopt;
    return RefusalText("takes more than " + std::to_string(objectlimits::kSearchSteps) +
                           " steps to sort its elements and find their private blocks",
                       ErrorClass::limit);
}

/// Value representation by the dictionary; that of a private element depends on who reserved its block.
DcmEVR Scan::knownVr(const DcmTagKey& tag) const {
    const char* creator = nullptr;
    for (const PrivateCreator& entry : m_levels.back().creators) {
        if (entry.group == tag.getGroup() && entry.block == tag.getElement() >> 8)
            creator = entry.name.c_str();
    }
    return DcmTag(tag.getGroup(), tag.getElement(), creator).getEVR();
}

bool Scan::isSequence(const ElementHeader& header) const {
    if (header.vr == EVR_SQ) return true;
    const bool unknown = header.vr == EVR_UN || header.vr == EVR_UNKNOWN || header.vr == EVR_UNKNOWN2B;
    if (!unknown) return false;
    // What is of an unknown kind and has no length can only be a sequence.
    if (m_levels.back().encoding.explicitVr && header.length == DCM_UndefinedLength) return true;
    const bool asked = header.vr == EVR_UN || !m_levels.back().encoding.explicitVr;
    const DcmEVR vr = asked ? knownVr(header.tag) : header.vr;
    return vr == EVR_SQ || (header.length == DCM_UndefinedLength &&
                            (vr == EVR_UN || vr == EVR_UNKNOWN || vr == EVR_UNKNOWN2B));
}

/// Takes note of values that decide how what follows is read: the length of the meta header, the transfer
/// syntax, and the creators of private blocks.
void Scan::takeNote(const ElementHeader& header) {
    Level& level = m_levels.back();
    const uint16_t group = header.tag.getGroup(), element = header.tag.getElement();
    if (level.kind == Level::MetaHeader && group == kMetaGroup && element == 0 && header.length >= 4 &&
        level.elements == 1) {
        const auto bytes = m_bytes.look(4);
        if (bytes.size() == 4)
            level.end = m_bytes.position() + header.length + fourBytes(bytes, level.encoding.bigEndian);
        return;
    }
    const bool creator = group % 2 == 1 && element >= 0x10 && element <= 0xFF;
    const bool transferSyntax =
        level.kind == Level::MetaHeader && header.tag == DCM_TransferSyntaxUID && m_transferSyntax.empty();
    if (!creator && !transferSyntax) return;
    const auto bytes = m_bytes.look(std::min<size_t>(header.length, kLongestName));
    std::string text(bytes.begin(), bytes.end());
    text.erase(text.find_last_not_of(std::string_view(" \0", 2)) + 1);
    if (creator)
        level.creators.push_back({group, element, text});
    else
        m_transferSyntax = text;
}

Refusal scanDataSet(ByteSource& file, Scan& metaHeader, Unparsed* unparsed, UnknownSyntax unknown) {
    const std::string& uid = metaHeader.transferSyntax();
    const TransferSyntax* highThroughput = findHighThroughput(uid);
    const DcmXfer syntax(highThroughput ? std::string(highThroughput->readAs).c_str() : uid.c_str());
    // The parser takes what it does not know for something that it knows.
    const bool isKnown = !uid.empty() && syntax.getXfer() != EXS_Unknown;
    if (!isKnown && !uid.empty() && unknown == UnknownSyntax::refused)
        return RefusalText("unsupported transfer syntax " + printable(uid), ErrorClass::unsupported);
    if (syntax.getStreamCompression() == ESC_zlib) {
        InflatedBytes inflated(file, objectlimits::kInflatedBytes);
        return Scan(inflated).dataSet(encodingOf(syntax));
    }
    Scan dataSet(file);
    dataSet.noteForeign(unparsed ? &unparsed->foreign : nullptr);
    Refusal refusal = dataSet.dataSet(isKnown ? encodingOf(syntax) : guessEncoding(file.look(6)));
    if (unparsed) unparsed->groups = dataSet.frameGroups();
    return refusal;
}

}  // namespace

bool isForeignGroup(uint16_t group) {
    return group % 2 != 0 && group != kPrivateGroup;
}

std::optional<RefusalText> scanObject(ObjectFile& object, Unparsed* unparsed, UnknownSyntax unknown) {
    FileBytes file(object);
    Scan metaHeader(file);
    if (Refusal refusal = metaHeader.metaHeader()) return refusal;
    return scanDataSet(file, metaHeader, unparsed, unknown);
}
