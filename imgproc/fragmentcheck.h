#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/ofstd/ofcond.h>

#include <cstdint>
#include <span>
#include <string>

#include "imgproc/frameshape.h"

/// Why a frame cannot be had, in our words.
OFCondition frameError(const std::string& text);

// What the toolkit's decoders take on trust in the first fragment of a frame. Their reading outside the
// fragments, going round for ever or filling more than the frame's buffer is to be prevented before they see
// it. And so is a frame that is not the one that the object describes: the decoders fill as much of the
// buffer as their stream has samples, and call it a success.

/// Bits Allocated (0028,0100) of decoded frames: decoders deliver whole bytes.
OFCondition checkDecodedBits(const FrameShape& shape);

/// The segment offsets of a run length header are followed wherever they lead: they have to ascend and to lie
/// within the `frame`. There is one segment for each byte of a pixel, and each unpacks to one byte for every
/// pixel of the `shape`. More than that is taken for padding while it is less than any row or column that
/// the object does not know of would make.
OFCondition checkRunLengths(std::span<const uint8_t> frame, const FrameShape& shape);

enum class JpegFamily { Jpeg, JpegLs };

/// Walks the markers of a JPEG or JPEG-LS stream from its start to its frame header. Every segment has to lie
/// within the `stream`, the frame's first fragment, and the frame header has to announce the pixels and
/// components of the `shape`, in samples that fit Bits Allocated; `precision` becomes their number of bits. A
/// JPEG-LS stream ends with its end marker, or padding behind it: the decoder of its scans reads on until a
/// marker comes.
OFCondition checkJpegMarkers(std::span<const uint8_t> stream, JpegFamily family, const FrameShape& shape,
                             unsigned& precision);
