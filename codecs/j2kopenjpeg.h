#pragma once

#include <openjpeg.h>

#include <memory>

#include "codecs/j2kcodestream.h"

struct J2kImageDeleter {
    void operator()(opj_image_t* image) const { opj_image_destroy(image); }
};
/// An image in OpenJPEG's shape: per component its own plane of 32-bit samples.
using J2kImage = std::unique_ptr<opj_image_t, J2kImageDeleter>;

/// What the encoder is asked for.
struct J2kEncodeOptions {
    bool lossless = true;      ///< 5/3 wavelet and all bits, else 9/7 and the size below
    double openJpegRatio = 0;  ///< lossy: bits of the samples over bits of the codestream; 0 is no limit
    bool multiComponentTransform = false;
    unsigned layers = 1;  ///< quality layers, each with twice the bytes of the one before
    std::string comment;  ///< put into the codestream's comment segment when not empty
};

/// Decodes a whole codestream straight from memory. A stream that ends early is an error.
/// `image`: on success owned by the caller, every component with samples.
OFCondition decodeJ2k(std::span<const uint8_t> codestream, J2kImage& image);

/// Encodes `image` as one tile into `codestream` (replaced).
OFCondition encodeJ2k(opj_image_t& image, const J2kEncodeOptions& options, std::vector<uint8_t>& codestream);

/// An image for `components` planes of the given size and precision, its samples zero; null without memory.
J2kImage makeJ2kImage(uint32_t width, uint32_t height, unsigned components, unsigned precision,
                      bool isSigned);
