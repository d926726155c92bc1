#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/picture/window.h"

namespace picture {

inline constexpr const char* kPreviewSuffix = ".p.qi4";
inline constexpr const char* kFirstPartSuffix = ".t.qi4";
inline constexpr const char* kRestSuffix = ".f.qi4";
inline constexpr const char* kThumbnailSuffix = ".cw1";
inline constexpr const char* kPixelSuffix = ".raw";

/// A Kelt payload or a prefix of one, put together from the files of a frame.
struct StreamFile {
    std::vector<uint8_t> payload;
    std::optional<DisplayWindow> window;
    std::optional<uint64_t> wholeLength;  ///< Of the whole payload, where the frame's other files tell.
};

/// Reads ".p.qi4" and ".t.qi4", or ".f.qi4" with its ".t.qi4". Throws PictureError.
StreamFile readStreamFile(const std::string& path);

/// The window that the stream elements of the same frame name, if there are any.
std::optional<DisplayWindow> windowOfSiblings(const std::string& path);

}  // namespace picture
