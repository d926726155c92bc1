#pragma once

#include <string>
#include <vector>

#include "tools/picture/frame.h"

namespace picture {

/// Writes an 8-bit grey or RGB picture. Throws PictureError; no half of a file is left then.
void writePng(const std::string& path, const Picture& picture);

/// The pictures side by side, all as high as the highest, on a dark ground. Pixels are repeated, not blurred,
/// so that one sees what a small picture really holds. Throws PictureError when the result would be too
/// large.
Picture sideBySide(const std::vector<Picture>& pictures);

}  // namespace picture
