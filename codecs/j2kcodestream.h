#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcerror.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

/// The condition that our JPEG 2000 layer answers with: an error of the data module with `text` as its
/// reason.
inline OFCondition j2kError(const std::string& text) {
    constexpr unsigned short kConditionCode = 0x2000;
    return makeOFCondition(OFM_dcmdata, kConditionCode, OF_error, ("JPEG 2000: " + text).c_str());
}

/// One component as the SIZ marker segment declares it.
struct J2kComponent {
    unsigned precision = 0;  ///< bits of a sample, 1 to 38
    bool isSigned = false;
    uint32_t stepX = 1;  ///< horizontal subsampling: one sample for this many columns
    uint32_t stepY = 1;  ///< vertical subsampling: one sample for this many rows
};

/// What a codestream is cut into, at most, by its coding styles.
struct J2kPackets {
    uint64_t layers = 0;
    uint64_t precincts = 0;  ///< of one component, in all tiles and resolutions
};

/// What the transfer syntax promises of a codestream.
enum class J2kPromise {
    none,                    ///< JPEG 2000: the stream itself tells
    highThroughput,          ///< HT code-blocks
    losslessHighThroughput,  ///< and in all of them, the reversible wavelet
};

/// What the extended capabilities segment (CAP) says of the HT code-blocks of a codestream.
struct J2kHighThroughput {
    bool announced = false;       ///< the image size segment says that there is a CAP segment
    bool declared = false;        ///< there is a CAP segment with a word for them
    bool onlyReversible = false;  ///< no component uses the irreversible wavelet
};

/// What the main header of a codestream says, read without the help of a decoder.
struct J2kHeader {
    uint32_t width = 0;   ///< columns of the image area
    uint32_t height = 0;  ///< rows of the image area
    uint32_t tiles = 0;
    std::vector<J2kComponent> components;
    bool multiComponentTransform = false;   ///< the first three components were transformed together
    bool reversible = false;                ///< 5/3 wavelet (else 9/7)
    J2kPromise promise = J2kPromise::none;  ///< of the transfer syntax; holds for tile-part headers as well
    J2kHighThroughput highThroughput;
    J2kPackets packets;      ///< the most that any coding style of the main header makes
    size_t tilePartsAt = 0;  ///< offset of the first tile-part in the codestream
};

/// Whether a fragment that begins with `head` (its first bytes, 42 are enough) begins a frame: a codestream
/// or a codestream in a JP2 box file.
bool startsJ2kFrame(std::span<const uint8_t> head);

/// The codestream in `frame`: the bytes themselves, or the content of the codestream box when they are a JP2
/// file. Empty when they are neither.
std::span<const uint8_t> findJ2kCodestream(std::span<const uint8_t> frame);

/// Reads the main header. Every size in it is checked for what it would make a decoder allocate: what passes
/// has at least one tile, tiles in a number that fits the image, and bounded numbers of precincts and
/// packets. Returns an error with its reason when the header is damaged or unreasonable, or does not keep the
/// `promise`.
OFCondition readJ2kHeader(std::span<const uint8_t> codestream, J2kHeader& header,
                          J2kPromise promise = J2kPromise::none);

/// Follows the chain of tile-parts and checks that each one lies wholly within the codestream and that every
/// tile has at least one: a cut codestream fails here, before anything is decoded.
OFCondition checkJ2kTileParts(std::span<const uint8_t> codestream, const J2kHeader& header);
