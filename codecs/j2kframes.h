#pragma once

#include <dcmtk/dcmdata/dcpixseq.h>
#include <dcmtk/dcmdata/dcpxitem.h>

#include <cstdint>
#include <span>
#include <vector>

#include "codecs/j2kcodestream.h"

/// The fragments of one frame in an encapsulated element, by their item number (item 0 is the offset table).
struct J2kFragmentRange {
    uint32_t first = 0;
    uint32_t end = 0;  ///< one past the last
};

/// Finds the fragments of a frame. Equal numbers of fragments and frames pair up one to one; otherwise the
/// offset table decides, and where there is none the fragments that begin a codestream do.
/// `frame`: 0-based
/// `frames`: Number of Frames (0028,0008), at least 1
/// `hint`: item number at which the frame is known to begin, 0 when it is not known.
OFCondition locateJ2kFrame(DcmPixelSequence& sequence, uint32_t frame, uint32_t frames, uint32_t hint,
                           J2kFragmentRange& range);

/// The compressed bytes of one frame, held as long as this object lives. One fragment is borrowed where it
/// lies, several are joined in a buffer of this object. Values that were read from the file are released
/// again at the end, so that memory does not grow with the number of frames.
class J2kFrameBytes {
public:
    J2kFrameBytes() = default;
    ~J2kFrameBytes();
    J2kFrameBytes(const J2kFrameBytes&) = delete;
    J2kFrameBytes& operator=(const J2kFrameBytes&) = delete;

    OFCondition load(DcmPixelSequence& sequence, const J2kFragmentRange& range);
    std::span<const uint8_t> bytes() const { return m_bytes; }

private:
    DcmPixelItem* m_borrowed = nullptr;
    std::vector<uint8_t> m_joined;
    std::span<const uint8_t> m_bytes;
};
