#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <cstdint>
#include <string>
#include <vector>

#include "hsutils/errorclass.h"
#include "imgproc/imageattributes.h"
#include "imgproc/unpack.h"

// What an object's attributes must say before its frames can be decoded, and once more after each frame,
// whose decoder may know better.

/// Why no image can be made of such an object, or no image of number `specificFrame` (0: all are wanted);
/// empty when one can.
RefusalText whyNoImage(const ImageAttributes& attributes, int specificFrame);

/// Why one frame is too large, as it comes or as it is kept for the viewer; empty when it is not.
RefusalText whyTooLarge(const ImageAttributes& attributes);

/// What is wrong with attributes that make a picture all the same, which nobody may take for what the object
/// shows. `hasColorModel`: there is a Photometric Interpretation (0028,0004), of any value.
std::vector<std::string> doubtsAbout(const ImageAttributes& attributes, bool hasColorModel);

/// Why a frame of this format, decoded to this color model, gave no image.
std::string whyNoImageCame(const PixelFormat& format, const std::string& colorModel);

/// Inserts the Planar Configuration (0028,0006) that colour without one usually has in the data set's
/// transfer syntax: the decoders ask for it.
void insertPlanarConfiguration(DcmDataset& dataset);

/// The samples of a decoded frame; `pixelDataBytes` is the length of the whole element, which tells
/// subsampled colour from such that only bears the name.
PixelFormat formatOfFrame(const ImageAttributes& attributes, uint32_t pixelDataBytes);
