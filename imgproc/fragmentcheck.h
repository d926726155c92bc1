#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcpxitem.h>

#include <cstdint>
#include <span>
#include <string>

/// Why a frame cannot be had, in our words.
OFCondition frameError(const std::string& text);

// What the toolkit's decoders take on trust in the first fragment of a frame. Their reading outside the
// fragments, going round for ever or filling more than the frame's buffer is to be prevented before they see
// it.

/// The segment offsets of a run length header are followed wherever they lead: they have to ascend and to lie
/// within the frame's `fragment`. Reads the header only.
OFCondition checkRunLengthHeader(DcmPixelItem& fragment);

enum class JpegFamily { Jpeg, JpegLs };

/// Walks the markers of a JPEG or JPEG-LS stream from its start to its frame header. Every segment has to lie
/// within the `stream`, the frame's first fragment, and the frame header may not announce an image that needs
/// more than the `frameBytes` of the buffer it is decoded into: the decoders count in 32 bits. A JPEG-LS
/// stream ends with its end marker, or padding behind it: the decoder of its scans reads on until a marker
/// comes.
OFCondition checkJpegMarkers(std::span<const uint8_t> stream, JpegFamily family, uint64_t frameBytes);
