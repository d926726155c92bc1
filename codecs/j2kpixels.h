#pragma once

#include <dcmtk/dcmdata/dcitem.h>

#include "codecs/j2kcodestream.h"
#include "codecs/j2kopenjpeg.h"

/// The attributes of a dataset that describe its uncompressed pixel data.
struct J2kPixelDescription {
    uint16_t rows = 0, columns = 0;
    uint16_t samples = 1;        ///< Samples per Pixel, 1 or 3
    uint16_t bitsAllocated = 0;  ///< 8 or 16
    uint16_t bitsStored = 0;
    bool isSigned = false;  ///< Pixel Representation
    bool planar = false;    ///< Planar Configuration 1 (three samples only)
    std::string photometric;
    uint32_t frames = 1;
    J2kPromise promise = J2kPromise::none;  ///< of the Transfer Syntax UID (0002,0010) beside them, if any

    /// Reads the attributes; an error names the first that this layer cannot work with.
    OFCondition read(DcmItem& dataset);
    uint64_t pixels() const { return uint64_t{rows} * columns; }
    uint64_t frameBytes() const { return pixels() * samples * (bitsAllocated / 8U); }
};

/// Whether a codestream with this header can be the frame that the dataset describes: its size, number of
/// components, precision, sign, and the memory that decoding takes (at most 2 GiB of decoded samples).
OFCondition checkJ2kAgainst(const J2kPixelDescription& description, const J2kHeader& header);

/// Writes the decoded samples into `buffer` (frameBytes() bytes) in the dataset's layout, native byte order.
OFCondition placeJ2kSamples(const opj_image_t& image, const J2kHeader& header,
                            const J2kPixelDescription& description, void* buffer);

/// Makes the image to encode from one frame. Its precision is Bits Stored where all that the samples say lies
/// in those bits, else Bits Allocated. Null without memory.
J2kImage takeJ2kSamples(const void* frame, const J2kPixelDescription& description);
