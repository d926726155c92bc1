#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>
#include <dcmtk/dcmdata/dcvr.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include <cstdint>
#include <optional>
#include <span>

#include "imgproc/bytesource.h"

// How the toolkit's parser reads what stands before a value. A scan that read anything differently would look
// at another object than the one that is parsed later.

/// How elements are written.
struct ElementEncoding {
    bool explicitVr = true;
    bool bigEndian = false;
};

/// What a sequence of unknown value representation is written in, wherever it stands.
inline constexpr ElementEncoding kEncodingWithinUnknown{false, false};

ElementEncoding encodingOf(const DcmXfer& transferSyntax);

/// What the parser takes bytes for whose transfer syntax is not known: judged by the tag and value
/// representation of the first element. `first` holds its first bytes, 6 where there are so many.
ElementEncoding guessEncoding(std::span<const uint8_t> first);

/// What stands before a value.
struct ElementHeader {
    DcmTagKey tag;
    DcmEVR vr = EVR_UNKNOWN;  ///< in implicit encoding EVR_UNKNOWN
    uint32_t length = 0;      ///< DCM_UndefinedLength when an end marker ends the value
};

/// Takes the header of the next element; nothing when the bytes end within it.
std::optional<ElementHeader> readElementHeader(ByteSource& bytes, ElementEncoding encoding);

/// Takes the header of the next item or fragment or of the end marker of a sequence, which have no value
/// representation; nothing when the bytes end within it.
std::optional<ElementHeader> readItemHeader(ByteSource& bytes, ElementEncoding encoding);
