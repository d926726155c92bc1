#pragma once

#include <string>

#include "tools/picture/window.h"

namespace picture {

/// What a frame's line of a ".desc" file tells about its ".raw" file.
struct DescLine {
    int columns = 0;
    int rows = 0;
    bool colour = false;  ///< Layout "bypixel".
    int bitsUsed = 0;
    DisplayWindow window;
};

/// The line of a frame, counted from 1; of -1 the first one. Throws PictureError.
DescLine readDescLine(const std::string& path, int frame);

}  // namespace picture
