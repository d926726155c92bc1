#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcfilefo.h>

#include <cstdint>
#include <optional>
#include <string>

/// Limits on what an object may ask for.
namespace objectlimits {
/// Bytes of one frame, as decoded and as it is stored for the viewer.
inline constexpr uint64_t frameBytes = uint64_t{1} << 30;
/// Sequences within sequences.
inline constexpr int nestingDepth = 256;
}  // namespace objectlimits

/// What an object is wanted for.
enum class ObjectUse {
    Conversion,
    Listing,  ///< only its elements: the pixel data need not be usable
};

/// The one door for objects before anything else looks at them: says why a loaded object cannot be used, or
/// nothing when it can. Looks at structure and sizes only; pixel values stay in the file. An object without
/// pixel data is fine.
std::optional<std::string> checkObject(DcmFileFormat& file, ObjectUse use = ObjectUse::Conversion);
