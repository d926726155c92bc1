#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcitem.h>

#include <cstdint>
#include <string>

#include "imgproc/elementvalues.h"

/// What a data set says of the size of its frames; 0 and empty where it does not.
struct FrameShape {
    Uint16 rows = 0;          ///< (0028,0010)
    Uint16 columns = 0;       ///< (0028,0011)
    Uint16 samples = 0;       ///< a pixel, (0028,0002)
    Uint16 allocated = 0;     ///< bits a sample, (0028,0100)
    Uint16 stored = 0;        ///< bits a sample, (0028,0101)
    std::string photometric;  ///< (0028,0004)

    explicit FrameShape(DcmItem& dataset) {
        dataset.findAndGetUint16(DCM_Rows, rows);
        dataset.findAndGetUint16(DCM_Columns, columns);
        dataset.findAndGetUint16(DCM_SamplesPerPixel, samples);
        dataset.findAndGetUint16(DCM_BitsAllocated, allocated);
        dataset.findAndGetUint16(DCM_BitsStored, stored);
        photometric = textOf(dataset, DCM_PhotometricInterpretation).value_or("");
    }

    uint64_t pixels() const { return uint64_t{rows} * columns; }
    /// Bytes of a frame whose pixels have `bits` bits each.
    uint64_t bytes(uint64_t bits) const { return (pixels() * bits + 7) / 8; }
    /// Bytes of a decoded frame.
    uint64_t decodedBytes() const { return bytes(uint64_t{samples} * allocated); }
};
