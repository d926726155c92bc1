#include "codecs/j2kencoder.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcpixseq.h>
#include <dcmtk/dcmdata/dcpxitem.h>
#include <dcmtk/dcmdata/dcstack.h>

#include <cstdio>
#include <memory>

#include "codecs/j2kpixels.h"

namespace {

/// What the encoder must know of the object and of the wish, checked against each other.
struct Job {
    J2kPixelDescription description;
    J2kEncodeOptions options;
    double rate = 1.0;
};

OFCondition prepare(DcmItem& dataset, uint64_t length, const D2RepresentationParameter& wish,
                    bool losslessOnly, Job& job) {
    if (const OFCondition result = job.description.read(dataset); result.bad()) return result;
    const J2kPixelDescription& description = job.description;
    if (length / description.frameBytes() < description.frames)
        return j2kError("the pixel data is shorter than its " + std::to_string(description.frames) +
                        " frames");
    const std::string& photometric = description.photometric;
    if (photometric.ends_with("_422") || photometric.ends_with("_420"))
        return j2kError("subsampled " + photometric + " pixel data cannot be encoded");
    job.options.lossless = losslessOnly || wish.lossless();
    job.options.multiComponentTransform =
        description.samples == 3 && photometric == "RGB" && wish.multiComponentTransform();
    job.options.layers = wish.layers();
    job.options.comment = wish.comment();
    if (job.options.lossless) return EC_Normal;
    if (photometric == "PALETTE COLOR")
        return j2kError("PALETTE COLOR pixel data cannot be encoded with loss");
    job.rate = wish.compressionRate();
    if (!(job.rate > 0.0 && job.rate <= 1.0)) return j2kError("a compression rate that is not in (0, 1]");
    return EC_Normal;
}

/// Encodes all frames; `bytes` is the number of compressed bytes.
OFCondition encodeFrames(const uint8_t* pixels, Job& job, const O2EncoderSettings& settings,
                         DcmPixelSequence& sequence, DcmOffsetList& offsets, uint64_t& bytes) {
    const J2kPixelDescription& description = job.description;
    std::vector<uint8_t> codestream;
    for (uint32_t frame = 0; frame < description.frames; ++frame) {
        const J2kImage image = takeJ2kSamples(pixels + frame * description.frameBytes(), description);
        if (!image) return EC_MemoryExhausted;
        // The library counts the bits of the samples, the wish the bytes of the object's pixel data.
        job.options.openJpegRatio = image->comps[0].prec / (description.bitsAllocated * job.rate);
        OFCondition result = encodeJ2k(*image, job.options, codestream);
        if (result.good() && codestream.size() > 0xFFFFFFFE)
            result = j2kError("a frame is over 4 GiB compressed");
        if (result.good())
            result = sequence.storeCompressedFrame(
                offsets, codestream.data(), static_cast<Uint32>(codestream.size()), settings.fragmentSize);
        if (result.bad()) return result;
        bytes += codestream.size();
    }
    return EC_Normal;
}

OFCondition appendRatio(DcmItem& dataset, double ratio) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", ratio);
    OFString ratios, methods;
    dataset.findAndGetOFStringArray(DCM_LossyImageCompressionRatio, ratios);
    dataset.findAndGetOFStringArray(DCM_LossyImageCompressionMethod, methods);
    ratios += ratios.empty() ? text : OFString("\\") + text;
    methods += methods.empty() ? "ISO_15444_1" : "\\ISO_15444_1";
    OFCondition result = dataset.putAndInsertString(DCM_LossyImageCompression, "01");
    if (result.good()) result = dataset.putAndInsertOFStringArray(DCM_LossyImageCompressionRatio, ratios);
    if (result.good()) result = dataset.putAndInsertOFStringArray(DCM_LossyImageCompressionMethod, methods);
    return result;
}

/// Makes the dataset say what the compressed pixel data is.
OFCondition describe(DcmItem& dataset, const Job& job, double ratio, const O2EncoderSettings& settings) {
    OFCondition result = EC_Normal;
    if (job.options.multiComponentTransform)
        result = dataset.putAndInsertString(DCM_PhotometricInterpretation,
                                            job.options.lossless ? "YBR_RCT" : "YBR_ICT");
    if (result.good() && job.description.samples == 3)
        result = dataset.putAndInsertUint16(DCM_PlanarConfiguration, 0);
    if (job.options.lossless) return result;
    if (result.good()) result = appendRatio(dataset, ratio);
    if (result.good() && dataset.ident() == EVR_dataset) {
        result = DcmCodec::updateImageType(&dataset);
        if (result.good() && settings.newInstanceUID)
            result = DcmCodec::newInstance(&dataset, "DCM", "121320", "Uncompressed predecessor");
    }
    return result;
}

OFCondition encodeObject(const Uint16* pixelData, Uint32 length, const D2RepresentationParameter& wish,
                         bool losslessOnly, const O2EncoderSettings& settings, DcmItem& dataset,
                         DcmPixelSequence*& sequence, OFBool& removeOldRepresentation) {
    Job job;
    OFCondition result = prepare(dataset, length, wish, losslessOnly, job);
    if (result.bad()) return result;
    auto made = std::make_unique<DcmPixelSequence>(DCM_PixelSequenceTag);
    auto table = std::make_unique<DcmPixelItem>(DCM_PixelItemTag);
    DcmPixelItem* offsetTable = table.get();
    result = made->insert(offsetTable);
    if (result.bad()) return result;
    table.release();  // the sequence owns it now
    DcmOffsetList offsets;
    uint64_t bytes = 0;
    result = encodeFrames(reinterpret_cast<const uint8_t*>(pixelData), job, settings, *made, offsets, bytes);
    // Offsets have 32 bits; an object beyond that stays without them.
    const uint64_t withHeaders = bytes + 9 * uint64_t{made->card()};
    if (result.good() && settings.createOffsetTable && withHeaders < 0xFFFFFFFF)
        result = offsetTable->createOffsetTable(offsets);
    const double original = static_cast<double>(job.description.frameBytes()) * job.description.frames;
    if (result.good()) result = describe(dataset, job, original / static_cast<double>(bytes), settings);
    if (result.bad()) return result;
    removeOldRepresentation =
        job.options.multiComponentTransform || !job.options.lossless || job.description.planar;
    sequence = made.release();
    return EC_Normal;
}

}  // namespace

OFCondition J2kEncoder::encode(const Uint16* pixelData, const Uint32 length,
                               const DcmRepresentationParameter* toParameter, DcmPixelSequence*& sequence,
                               const DcmCodecParameter* parameter, DcmStack& stack,
                               OFBool& removeOldRepresentation) const {
    const auto* settings = dynamic_cast<const J2kCodecParameter*>(parameter);
    DcmStack copy(stack);
    copy.pop();  // the pixel data element; below it lies the item that holds it
    DcmObject* holder = copy.pop();
    if (!pixelData || !settings || !holder) return EC_IllegalCall;
    if (holder->ident() != EVR_dataset && holder->ident() != EVR_item) return EC_InvalidTag;
    const D2RepresentationParameter lossless;
    const auto* wish = dynamic_cast<const D2RepresentationParameter*>(toParameter);
    try {
        return encodeObject(pixelData, length, wish ? *wish : lossless, m_target == EXS_JPEG2000LosslessOnly,
                            settings->encoder(), static_cast<DcmItem&>(*holder), sequence,
                            removeOldRepresentation);
    } catch (const std::bad_alloc&) {
        return EC_MemoryExhausted;
    }
}

OFBool J2kEncoder::canChangeCoding(const E_TransferSyntax from, const E_TransferSyntax to) const {
    return to == m_target && !DcmXfer(from).isEncapsulated();
}
