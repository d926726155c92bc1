#include "imgproc/nestingscan.h"

#include <dcmtk/dcmdata/dcvr.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <vector>

#include "imgproc/bytestream.h"
#include "imgproc/objectcheck.h"

namespace {

constexpr uint32_t undefinedLength = 0xFFFFFFFF;
constexpr uint64_t openEnd = std::numeric_limits<uint64_t>::max();
constexpr uint32_t itemTag = 0xFFFEE000;
constexpr uint32_t itemEndTag = 0xFFFEE00D;
constexpr uint32_t sequenceEndTag = 0xFFFEE0DD;
constexpr uint32_t pixelDataTag = 0x7FE00010;

bool isUpper(uint8_t c) {
    return c >= 'A' && c <= 'Z';
}

struct Encoding {
    bool explicitVr = true;
    bool bigEndian = false;

    uint32_t number(std::span<const uint8_t> bytes) const {
        uint32_t value = 0;
        for (size_t i = 0; i < bytes.size(); ++i)
            value = value << 8 | bytes[bigEndian ? i : bytes.size() - 1 - i];
        return value;
    }
};

struct ElementHeader {
    uint32_t tag = 0;
    DcmEVR vr = EVR_UNKNOWN;
    uint32_t length = 0;
};

bool readHeader(ByteStream& stream, const Encoding& encoding, ElementHeader& header) {
    const auto start = stream.peek(8);
    if (start.empty()) return false;
    header.tag = encoding.number(start.subspan(0, 2)) << 16 | encoding.number(start.subspan(2, 2));
    header.vr = EVR_UNKNOWN;
    if (!encoding.explicitVr || header.tag >> 16 == 0xFFFE) {
        header.length = encoding.number(start.subspan(4, 4));
        stream.take(8);
        return true;
    }
    const char name[3] = {static_cast<char>(start[4]), static_cast<char>(start[5]), '\0'};
    const DcmVR vr(name);
    header.vr = vr.getEVR();
    if (!vr.usesExtendedLengthEncoding()) {
        header.length = encoding.number(start.subspan(6, 2));
        stream.take(8);
        return true;
    }
    const auto whole = stream.peek(12);
    if (whole.empty()) return false;
    header.length = encoding.number(whole.subspan(8, 4));
    stream.take(12);
    return true;
}

/// Reads the meta header; the stream stands at the data set afterwards.
std::string transferSyntaxOf(ByteStream& stream) {
    std::string uid;
    while (true) {
        const auto start = stream.peek(6);
        if (start.empty() || start[0] != 0x02 || start[1] != 0x00) return uid;
        ElementHeader header;
        const Encoding encoding{.explicitVr = isUpper(start[4]) && isUpper(start[5])};
        if (!readHeader(stream, encoding, header)) return uid;
        if (header.tag == 0x00020010 && header.length <= 64) {
            const auto text = stream.peek(header.length);
            uid.assign(text.begin(), text.end());
            uid.erase(std::find_if(uid.begin(), uid.end(), [](char c) { return c == '\0' || c == ' '; }),
                      uid.end());
        }
        if (!stream.skip(header.length)) return uid;
    }
}

Encoding guessEncoding(ByteStream& stream) {
    const auto start = stream.peek(6);
    if (start.empty()) return {};
    const bool explicitVr = isUpper(start[4]) && isUpper(start[5]);
    return {.explicitVr = explicitVr, .bigEndian = explicitVr && start[0] == 0 && start[1] != 0};
}

/// The walk through the headers of a data set, with a stack of its own.
class HeaderWalk {
public:
    HeaderWalk(ByteStream& stream, Encoding encoding, uint64_t limit)
        : m_stream(stream), m_encoding(encoding), m_limit(limit) {}

    std::optional<std::string> run() {
        ElementHeader header;
        while (true) {
            while (!m_levels.empty() && m_stream.position() >= m_levels.back().end)
                m_levels.pop_back();
            if (!readHeader(m_stream, current(), header) || !enter(header)) return std::nullopt;
            // The data set, and two levels for each sequence.
            if (m_levels.size() > 2 * size_t{objectlimits::nestingDepth})
                return "sequences are nested more than " + std::to_string(objectlimits::nestingDepth) +
                       " levels deep";
            if (m_stream.position() > m_limit)
                return "the inflated object exceeds the limit of " + std::to_string(m_limit) + " bytes";
        }
    }

private:
    struct Level {
        uint64_t end;
        Encoding encoding;
        bool isSequence;
        bool holdsFragments;
    };

    const Encoding& current() const { return m_levels.empty() ? m_encoding : m_levels.back().encoding; }
    uint64_t enclosingEnd() const { return m_levels.empty() ? openEnd : m_levels.back().end; }

    /// Where a value of this length ends, at most where its surroundings end.
    uint64_t endOf(uint32_t length) const {
        return length == undefinedLength ? enclosingEnd()
                                         : std::min(m_stream.position() + length, enclosingEnd());
    }

    bool skipValue(uint32_t length) { return m_stream.skip(endOf(length) - m_stream.position()); }

    /// False when the file ends within the value.
    bool enter(const ElementHeader& header) {
        if (header.tag == itemEndTag) {
            if (!m_levels.empty() && !m_levels.back().isSequence) m_levels.pop_back();
            return true;
        }
        if (header.tag == sequenceEndTag) {
            while (!m_levels.empty() && !m_levels.back().isSequence)
                m_levels.pop_back();
            if (!m_levels.empty()) m_levels.pop_back();
            return true;
        }
        const bool inFragments = !m_levels.empty() && m_levels.back().holdsFragments;
        if (header.tag == itemTag && !inFragments) {
            m_levels.push_back({endOf(header.length), current(), false, false});
            return true;
        }
        if (inFragments || !holdsItems(header)) {
            if (header.length != undefinedLength) return skipValue(header.length);
            m_levels.push_back({enclosingEnd(), current(), true, true});
            return true;
        }
        // The content of an unknown value is always written the default way.
        const Encoding encoding = header.vr == EVR_UN ? Encoding{.explicitVr = false} : current();
        m_levels.push_back({endOf(header.length), encoding, true, false});
        return true;
    }

    bool holdsItems(const ElementHeader& header) {
        if (header.vr == EVR_SQ) return true;
        const bool unknown = !current().explicitVr || header.vr == EVR_UN;
        if (!unknown) return false;
        if (header.length == undefinedLength) return header.tag != pixelDataTag;
        // The reader may know from its dictionary that this is a sequence; what starts like one is taken for
        // one.
        if (header.length < 8) return false;
        const auto start = m_stream.peek(4);
        constexpr uint8_t item[] = {0xFE, 0xFF, 0x00, 0xE0};
        return !start.empty() && std::memcmp(start.data(), item, sizeof item) == 0;
    }

    ByteStream& m_stream;
    Encoding m_encoding;
    uint64_t m_limit;
    std::vector<Level> m_levels;
};

}  // namespace

std::optional<std::string> scanFile(const std::string& path) {
    constexpr size_t preamble = 128;
    ByteStream stream(path, 0, false);
    const bool hasPreamble = stream.skip(preamble) && [&] {
        const auto magic = stream.peek(4);
        return !magic.empty() && std::memcmp(magic.data(), "DICM", 4) == 0;
    }();
    const uint64_t start = hasPreamble ? preamble + 4 : 0;
    ByteStream file(path, start, false);
    const std::string uid = transferSyntaxOf(file);
    const DcmXfer xfer(uid.c_str());
    if (xfer.getXfer() == EXS_DeflatedLittleEndianExplicit) {
        ByteStream inflated(path, start + file.position(), true);
        return HeaderWalk(inflated, {}, objectlimits::inflatedBytes).run();
    }
    Encoding encoding = guessEncoding(file);
    if (xfer.getXfer() != EXS_Unknown)
        encoding = {.explicitVr = xfer.isExplicitVR() != OFFalse, .bigEndian = xfer.isBigEndian() != OFFalse};
    return HeaderWalk(file, encoding, openEnd).run();
}
