#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <optional>

#include "hsutils/errorclass.h"

/// The door for objects that are to be converted, after the scan of their file (imgproc/objectscan.h) and
/// before the walk: says why the pixel data of a loaded object cannot be used, or nothing when they can.
/// Looks at attributes and sizes only; pixel values stay in the file. An object without pixel data is fine.
std::optional<RefusalText> checkObject(DcmDataset& dataset);
