#include "codecs/j2kpixels.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <bit>

#include "hsutils/Utils.h"
#include "hsutils/transfersyntaxes.h"

static_assert(std::endian::native == std::endian::little, "frames are placed in little-endian byte order");

namespace {

constexpr uint64_t kDecodedBytesAllowed = uint64_t{2} << 30;

/// Where the samples of one component lie in a frame: the first one and the distance to the next.
struct Placement {
    size_t offset;
    size_t stride;
};

Placement placementOf(unsigned component, const J2kPixelDescription& description) {
    if (description.planar) return {component * static_cast<size_t>(description.pixels()), 1};
    return {component, description.samples};
}

template <typename Sample>
void placeFull(const opj_image_comp_t& component, Sample* samples, size_t stride) {
    const size_t count = size_t{component.w} * component.h;
    for (size_t i = 0; i < count; ++i)
        samples[i * stride] = static_cast<Sample>(component.data[i]);
}

/// Repeats the samples of a subsampled component over the pixels that they stand for.
template <typename Sample>
void placeSubsampled(const opj_image_t& image, const opj_image_comp_t& component, uint32_t columns,
                     uint32_t rows, Sample* samples, size_t stride) {
    const uint32_t firstX = (image.x0 + component.dx - 1) / component.dx;
    const uint32_t firstY = (image.y0 + component.dy - 1) / component.dy;
    const auto indexOf = [](uint32_t position, uint32_t step, uint32_t first, uint32_t count) {
        const uint32_t index = position / step;
        return index <= first ? 0 : std::min(index - first, count - 1);
    };
    for (uint32_t y = 0; y < rows; ++y) {
        const OPJ_INT32* line =
            component.data + size_t{indexOf(image.y0 + y, component.dy, firstY, component.h)} * component.w;
        for (uint32_t x = 0; x < columns; ++x, samples += stride)
            *samples = static_cast<Sample>(line[indexOf(image.x0 + x, component.dx, firstX, component.w)]);
    }
}

template <typename Sample>
void placeAll(const opj_image_t& image, const J2kPixelDescription& description, Sample* frame) {
    for (unsigned i = 0; i < description.samples; ++i) {
        const opj_image_comp_t& component = image.comps[i];
        const auto [offset, stride] = placementOf(i, description);
        if (component.w == description.columns && component.h == description.rows)
            placeFull(component, frame + offset, stride);
        else
            placeSubsampled(image, component, description.columns, description.rows, frame + offset, stride);
    }
}

/// The sample's value: its low `bits` bits, extended with zeros or the sign.
int32_t valueOf(uint32_t sample, unsigned bits, bool isSigned) {
    const uint32_t value = sample & ((1U << bits) - 1);
    const uint32_t sign = isSigned ? 1U << (bits - 1) : 0;
    return static_cast<int32_t>(value ^ sign) - static_cast<int32_t>(sign);
}

/// Whether a frame says everything in its stored bits, so that the bits above carry no information.
template <typename Sample>
bool fitsStoredBits(const Sample* samples, size_t count, const J2kPixelDescription& description) {
    const unsigned bits = description.bitsStored;
    return std::all_of(samples, samples + count, [&](Sample sample) {
        return static_cast<Sample>(valueOf(sample, bits, description.isSigned)) == sample;
    });
}

template <typename Sample>
J2kImage takeAll(const Sample* samples, const J2kPixelDescription& description) {
    const size_t pixels = description.pixels();
    const bool stored = description.bitsStored >= 1 && description.bitsStored < description.bitsAllocated &&
                        fitsStoredBits(samples, pixels * description.samples, description);
    const unsigned precision = stored ? description.bitsStored : description.bitsAllocated;
    J2kImage image = makeJ2kImage(description.columns, description.rows, description.samples, precision,
                                  description.isSigned);
    if (!image) return image;
    for (unsigned i = 0; i < description.samples; ++i) {
        const auto [offset, stride] = placementOf(i, description);
        OPJ_INT32* out = image->comps[i].data;
        for (size_t p = 0; p < pixels; ++p)
            out[p] = valueOf(samples[offset + p * stride], precision, description.isSigned);
    }
    return image;
}

J2kPromise promiseOf(DcmItem& dataset) {
    OFString uid;
    if (dataset.findAndGetOFString(DCM_TransferSyntaxUID, uid).bad()) return J2kPromise::none;
    const TransferSyntax* syntax = findHighThroughput(unpadded({uid.data(), uid.size()}));
    if (!syntax) return J2kPromise::none;
    return syntax->promisesLossless ? J2kPromise::losslessHighThroughput : J2kPromise::highThroughput;
}

}  // namespace

OFCondition J2kPixelDescription::read(DcmItem& dataset) {
    Uint16 value = 0;
    const auto get = [&](const DcmTagKey& tag) {
        return dataset.findAndGetUint16(tag, value = 0).good() ? value : 0;
    };
    rows = get(DCM_Rows);
    columns = get(DCM_Columns);
    samples = get(DCM_SamplesPerPixel);
    bitsAllocated = get(DCM_BitsAllocated);
    bitsStored = get(DCM_BitsStored);
    isSigned = get(DCM_PixelRepresentation) == 1;
    planar = samples == 3 && get(DCM_PlanarConfiguration) == 1;
    OFString text;
    if (dataset.findAndGetOFString(DCM_PhotometricInterpretation, text).good())
        photometric = unpadded({text.data(), text.size()});
    Sint32 count = 0;
    frames = dataset.findAndGetSint32(DCM_NumberOfFrames, count).good() && count > 0
                 ? static_cast<uint32_t>(count)
                 : 1;
    promise = promiseOf(dataset);
    if (rows == 0 || columns == 0) return j2kError("Rows or Columns is missing or 0");
    if (samples != 1 && samples != 3) return j2kError("Samples per Pixel is " + std::to_string(samples));
    if (bitsAllocated != 8 && bitsAllocated != 16)
        return j2kError("Bits Allocated is " + std::to_string(bitsAllocated) +
                        ", only 8 and 16 can be coded");
    return EC_Normal;
}

OFCondition checkJ2kAgainst(const J2kPixelDescription& description, const J2kHeader& header) {
    if (header.width != description.columns || header.height != description.rows)
        return j2kError("the codestream holds " + std::to_string(header.width) + " x " +
                        std::to_string(header.height) + " pixels, the object says " +
                        std::to_string(description.columns) + " x " + std::to_string(description.rows));
    if (header.components.size() != description.samples)
        return j2kError("the codestream has " + std::to_string(header.components.size()) +
                        " components, the object says " + std::to_string(description.samples));
    for (const J2kComponent& component : header.components)
        if (component.precision > description.bitsAllocated)
            return j2kError("the codestream has " + std::to_string(component.precision) +
                            " bits a sample, the object allocates " +
                            std::to_string(description.bitsAllocated));
    // Where all stored bits come from the codestream, its sign is only a matter of how they are read.
    for (const J2kComponent& component : header.components)
        if (component.isSigned && !description.isSigned && component.precision < description.bitsStored)
            return j2kError("the codestream has signed samples of " + std::to_string(component.precision) +
                            " bits, the object says unsigned samples of " +
                            std::to_string(description.bitsStored));
    if (description.pixels() * description.samples * sizeof(OPJ_INT32) > kDecodedBytesAllowed)
        return j2kError("a frame of " + std::to_string(header.width) + " x " + std::to_string(header.height) +
                        " pixels is over the limit of 2 GiB of decoded samples");
    return EC_Normal;
}

OFCondition placeJ2kSamples(const opj_image_t& image, const J2kHeader& header,
                            const J2kPixelDescription& description, void* buffer) {
    if (image.numcomps < description.samples) return j2kError("a component is missing");
    for (unsigned i = 0; i < description.samples; ++i) {
        const opj_image_comp_t& component = image.comps[i];
        const bool full = header.components[i].stepX == 1 && header.components[i].stepY == 1;
        if (!component.data || component.w == 0 || component.h == 0 || component.w > description.columns ||
            component.h > description.rows ||
            (full && (component.w != description.columns || component.h != description.rows)))
            return j2kError("a component has the wrong size");
    }
    if (description.bitsAllocated == 8)
        placeAll(image, description, static_cast<uint8_t*>(buffer));
    else
        placeAll(image, description, static_cast<uint16_t*>(buffer));
    return EC_Normal;
}

J2kImage takeJ2kSamples(const void* frame, const J2kPixelDescription& description) {
    if (description.bitsAllocated == 8) return takeAll(static_cast<const uint8_t*>(frame), description);
    return takeAll(static_cast<const uint16_t*>(frame), description);
}
