#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcfilefo.h>

#include <optional>
#include <string>

#include "imgproc/objectlimits.h"

/// What an object is wanted for.
enum class ObjectUse {
    Conversion,
    Listing,  ///< only its elements: the pixel data need not be usable
};

/// The one door for objects before anything else looks at them: says why a loaded object cannot be used, or
/// nothing when it can. Looks at structure and sizes only; pixel values stay in the file. An object without
/// pixel data is fine.
std::optional<std::string> checkObject(DcmFileFormat& file, ObjectUse use = ObjectUse::Conversion);
