#include "codecs/j2kdecoder.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcstack.h>
#include <dcmtk/dcmdata/dcvrpobw.h>

#include "codecs/j2kframes.h"
#include "codecs/j2kpixels.h"

namespace {

/// The colour model of decoded frames. Without subsampling there is no YBR_FULL_422 any more, and what the
/// multi-component transform changed is changed back by the decoder. YBR_RCT and YBR_ICT are names of that
/// transform: where a codestream does without it, its components are red, green and blue.
OFString colorModelOf(const J2kHeader& header, const J2kPixelDescription& description) {
    if (header.components.size() != 3) return description.photometric.c_str();
    if (header.multiComponentTransform) return "RGB";
    const std::string& label = description.photometric;
    const bool transform = label.starts_with("YBR_RCT") || label.starts_with("YBR_ICT");
    return label.starts_with("YBR_") && !transform ? "YBR_FULL" : "RGB";
}

/// Decodes one frame into `buffer`, which holds description.frameBytes() bytes.
OFCondition decodeOne(DcmPixelSequence& sequence, const J2kFragmentRange& range,
                      const J2kPixelDescription& description, void* buffer, OFString& colorModel) {
    J2kFrameBytes frame;
    if (const OFCondition result = frame.load(sequence, range); result.bad()) return result;
    const auto codestream = findJ2kCodestream(frame.bytes());
    J2kHeader header;
    OFCondition result = readJ2kHeader(codestream, header, description.promise);
    if (result.good()) result = checkJ2kAgainst(description, header);
    if (result.good()) result = checkJ2kTileParts(codestream, header);
    J2kImage image;
    if (result.good()) result = decodeJ2k(codestream, image);
    if (result.good()) result = placeJ2kSamples(*image, header, description, buffer);
    if (result.good()) colorModel = colorModelOf(header, description);
    return result;
}

/// Runs `work` so that a lack of memory becomes a condition: the toolkit does not expect exceptions.
template <typename Work>
OFCondition withoutExceptions(Work&& work) {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return EC_MemoryExhausted;
    } catch (const std::length_error&) {
        return EC_MemoryExhausted;
    }
}

OFCondition decodeWhole(DcmPixelSequence& sequence, DcmPolymorphOBOW& pixelData, DcmItem& dataset,
                        OFBool& removeOldRepresentation) {
    J2kPixelDescription description;
    if (const OFCondition result = description.read(dataset); result.bad()) return result;
    const uint64_t frameBytes = description.frameBytes();
    constexpr uint64_t kLargestElement = 0xFFFFFFFE;
    if (frameBytes > kLargestElement / description.frames)
        return j2kError("the " + std::to_string(description.frames) + " frames are over 4 GiB uncompressed");
    const uint64_t words = (frameBytes * description.frames + 1) / 2;
    // A fragment less than frames cannot be: refuse before the memory for all frames is taken.
    if (sequence.card() < 2 || description.frames > sequence.card() - 1)
        return j2kError(std::to_string(description.frames) + " frames in fewer fragments");
    Uint16* out = nullptr;
    OFCondition result = pixelData.createUint16Array(static_cast<Uint32>(words), out);
    if (result.good() && words != 0) out[words - 1] = 0;
    OFString colorModel;
    J2kFragmentRange range;
    for (uint32_t frame = 0; result.good() && frame < description.frames; ++frame) {
        result = locateJ2kFrame(sequence, frame, description.frames, range.end, range);
        if (result.good())
            result = decodeOne(sequence, range, description,
                               reinterpret_cast<uint8_t*>(out) + frame * frameBytes, colorModel);
    }
    if (result.good() && colorModel != description.photometric.c_str()) {
        // The compressed form no longer agrees with what the dataset says.
        removeOldRepresentation = OFTrue;
        result = dataset.putAndInsertOFStringArray(DCM_PhotometricInterpretation, colorModel);
    }
    if (result.good() && description.samples == 3)
        result = dataset.putAndInsertUint16(DCM_PlanarConfiguration, description.planar ? 1 : 0);
    return result;
}

}  // namespace

OFCondition J2kDecoder::decode(const DcmRepresentationParameter*, DcmPixelSequence* sequence,
                               DcmPolymorphOBOW& pixelData, const DcmCodecParameter*, const DcmStack& stack,
                               OFBool& removeOldRepresentation) const {
    // The stack ends with the pixel data element; below it lies the item that holds it.
    DcmStack copy(stack);
    copy.pop();
    DcmObject* holder = copy.pop();
    if (!sequence || !holder || (holder->ident() != EVR_dataset && holder->ident() != EVR_item))
        return EC_InvalidTag;
    return withoutExceptions([&] {
        return decodeWhole(*sequence, pixelData, static_cast<DcmItem&>(*holder), removeOldRepresentation);
    });
}

OFCondition J2kDecoder::decodeFrame(const DcmRepresentationParameter*, DcmPixelSequence* sequence,
                                    const DcmCodecParameter*, DcmItem* dataset, Uint32 frame,
                                    Uint32& startFragment, void* buffer, Uint32 size,
                                    OFString& colorModel) const {
    if (!sequence || !dataset || !buffer) return EC_IllegalCall;
    return withoutExceptions([&]() -> OFCondition {
        J2kPixelDescription description;
        OFCondition result = description.read(*dataset);
        if (result.good() && description.frameBytes() > size)
            result =
                j2kError("the buffer of " + std::to_string(size) + " bytes is too small for a frame of " +
                         std::to_string(description.frameBytes()));
        J2kFragmentRange range;
        if (result.good())
            result = locateJ2kFrame(*sequence, frame, description.frames, startFragment, range);
        if (result.good()) result = decodeOne(*sequence, range, description, buffer, colorModel);
        if (result.good()) startFragment = range.end;
        return result;
    });
}

OFBool J2kDecoder::canChangeCoding(const E_TransferSyntax from, const E_TransferSyntax to) const {
    const bool ours = from == EXS_JPEG2000LosslessOnly || from == EXS_JPEG2000;
    return ours && !DcmXfer(to).isEncapsulated();
}

OFCondition J2kDecoder::determineDecompressedColorModel(const DcmRepresentationParameter*,
                                                        DcmPixelSequence* sequence, const DcmCodecParameter*,
                                                        DcmItem* dataset, OFString& colorModel) const {
    if (!sequence || !dataset) return EC_IllegalCall;
    return withoutExceptions([&]() -> OFCondition {
        J2kPixelDescription description;
        OFCondition result = description.read(*dataset);
        J2kFragmentRange range;
        if (result.good()) result = locateJ2kFrame(*sequence, 0, description.frames, 0, range);
        J2kFrameBytes frame;
        if (result.good()) result = frame.load(*sequence, range);
        J2kHeader header;
        if (result.good())
            result = readJ2kHeader(findJ2kCodestream(frame.bytes()), header, description.promise);
        if (result.good()) colorModel = colorModelOf(header, description);
        return result;
    });
}
