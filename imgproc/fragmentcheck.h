#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcpxitem.h>

#include <cstdint>

// What the toolkit's decoders take on trust in the first fragment of a frame. Their reading outside the
// fragments or going round for ever is to be prevented before they see it.

/// The segment offsets of a run length header are followed wherever they lead: they have to ascend and to lie
/// within the `available` bytes of this and the following fragments.
OFCondition checkRunLengthHeader(DcmPixelItem& fragment, uint64_t available);

/// The search for the frame header of a JPEG stream never gets past a TEM marker. Loads the fragment's value.
OFCondition checkJpegMarkers(DcmPixelItem& fragment);
