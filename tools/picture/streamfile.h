#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/picture/window.h"

namespace picture {

inline constexpr const char* previewSuffix = ".p.qi4";
inline constexpr const char* firstPartSuffix = ".t.qi4";
inline constexpr const char* restSuffix = ".f.qi4";
inline constexpr const char* thumbnailSuffix = ".cw1";
inline constexpr const char* pixelSuffix = ".raw";

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
