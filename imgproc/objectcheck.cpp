#include "imgproc/objectcheck.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcmetinf.h>
#include <dcmtk/dcmdata/dcsequen.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include <algorithm>
#include <vector>

#include "imgproc/framereader.h"

namespace {

using Refusal = std::optional<std::string>;

/// The toolkit takes a file of a transfer syntax that it does not know for Explicit VR Little Endian, so the
/// text in the meta header decides.
Refusal checkTransferSyntax(DcmFileFormat& file) {
    OFString uid;
    file.getMetaInfo()->findAndGetOFString(DCM_TransferSyntaxUID, uid);
    if (uid.empty() || DcmXfer(uid.c_str()).getXfer() != EXS_Unknown) return std::nullopt;
    return "unsupported transfer syntax " + uid;
}

/// Walks the sequences with its own stack, so that nesting costs the walk nothing.
Refusal checkNesting(DcmItem& dataset) {
    struct Position {
        DcmObject* container;
        DcmObject* current;
    };
    std::vector<Position> stack{{&dataset, nullptr}};
    while (!stack.empty()) {
        Position& top = stack.back();
        top.current = top.container->nextInContainer(top.current);
        if (top.current == nullptr) {
            stack.pop_back();
        } else if (top.current->ident() == EVR_SQ || top.current->ident() == EVR_item) {
            // A sequence and its item are two steps of one level.
            if (stack.size() > 2 * size_t{objectlimits::nestingDepth})
                return "sequences are nested more than " + std::to_string(objectlimits::nestingDepth) +
                       " levels deep";
            stack.push_back({top.current, nullptr});
        }
    }
    return std::nullopt;
}

struct FrameShape {
    Uint16 rows = 0;
    Uint16 columns = 0;
    Uint16 samples = 1;
    Uint16 allocated = 0;
    Uint16 stored = 0;

    explicit FrameShape(DcmItem& dataset) {
        dataset.findAndGetUint16(DCM_Rows, rows);
        dataset.findAndGetUint16(DCM_Columns, columns);
        dataset.findAndGetUint16(DCM_SamplesPerPixel, samples);
        dataset.findAndGetUint16(DCM_BitsAllocated, allocated);
        dataset.findAndGetUint16(DCM_BitsStored, stored);
    }

    uint64_t pixels() const { return uint64_t{rows} * columns; }
    uint64_t decodedBytes() const { return (pixels() * samples * allocated + 7) / 8; }
};

Refusal checkFrameSize(const FrameShape& shape) {
    const uint64_t bytes =
        std::max(shape.decodedBytes(), shape.pixels() * std::max<Uint16>(shape.samples, 3));
    if (bytes <= objectlimits::frameBytes) return std::nullopt;
    return "a frame of " + std::to_string(shape.columns) + " x " + std::to_string(shape.rows) + " pixels, " +
           std::to_string(shape.samples) + " samples of " + std::to_string(shape.allocated) +
           " bits exceeds the limit of " + std::to_string(objectlimits::frameBytes) + " bytes";
}

Refusal checkBits(const FrameShape& shape) {
    if (shape.allocated == 0 || shape.allocated > 16)
        return "Bits Allocated (0028,0100) of " + std::to_string(shape.allocated) + " is not supported";
    if (shape.stored > shape.allocated)
        return "Bits Stored (0028,0101) of " + std::to_string(shape.stored) +
               " exceeds Bits Allocated (0028,0100) of " + std::to_string(shape.allocated);
    return std::nullopt;
}

Refusal checkFirstFrame(DcmDataset& dataset, DcmElement& pixelData) {
    const FrameReader frames(dataset, pixelData);
    if (frames.compressed() || frames.nativeFrameSize() <= pixelData.getLength()) return std::nullopt;
    return "the pixel data holds " + std::to_string(pixelData.getLength()) + " bytes, but a frame needs " +
           std::to_string(frames.nativeFrameSize());
}

}  // namespace

std::optional<std::string> checkObject(DcmFileFormat& file, ObjectUse use) {
    DcmDataset& dataset = *file.getDataset();
    if (auto refusal = checkTransferSyntax(file)) return refusal;
    if (auto refusal = checkNesting(dataset)) return refusal;
    DcmElement* pixelData = nullptr;
    if (use == ObjectUse::Listing || dataset.findAndGetElement(DCM_PixelData, pixelData).bad())
        return std::nullopt;
    const FrameShape shape(dataset);
    // Without a size there is no frame to check; the conversion says so.
    if (shape.pixels() == 0 || shape.samples == 0) return std::nullopt;
    if (auto refusal = checkBits(shape)) return refusal;
    if (auto refusal = checkFrameSize(shape)) return refusal;
    return checkFirstFrame(dataset, *pixelData);
}
