#include "tools/picture/descline.h"

#include <cmath>
#include <sstream>

#include "tools/picture/files.h"

namespace picture {

DescLine readDescLine(const std::string& path, int frame) {
    if (!isFile(path)) throw PictureError("no description of the frame: cannot open " + path);
    const std::vector<uint8_t> bytes = readFile(path);
    std::istringstream file(std::string(bytes.begin(), bytes.end()));
    std::string text;
    while (std::getline(file, text)) {
        std::istringstream fields(text);
        int number = 0, sampleWidth = 0;
        if (!(fields >> number) || (frame >= 0 && number != frame)) continue;
        DescLine line;
        std::string layout;
        DisplayWindow& window = line.window;
        fields >> line.columns >> line.rows >> layout >> sampleWidth >> line.bitsUsed >> window.intercept >>
            window.slope >> window.width >> window.center;
        if (!fields) throw PictureError("line of frame " + std::to_string(frame) + " is damaged in " + path);
        line.colour = layout == "bypixel";
        window.inverted = window.width < 0;
        window.width = std::fabs(window.width);
        return line;
    }
    throw PictureError("no line of frame " + std::to_string(frame) + " in " + path);
}

}  // namespace picture
