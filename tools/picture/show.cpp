#include <cstdio>
#include <iostream>

#include "tools/exitcodes.h"
#include "tools/picture/commands.h"
#include "tools/picture/commandwords.h"
#include "tools/picture/files.h"
#include "tools/picture/frame.h"
#include "tools/picture/packedframe.h"
#include "tools/picture/png.h"

namespace {

constexpr picture::CommandHelp kHelp{"show FILE... [-o PICTURE.png] [options]",
                                     "Decodes frames and thumbnails of the viewer's files and tells their "
                                     "size, bits, levels and the share of the\n"
                                     "stream that was used: .p.qi4 (preview), .t.qi4 (first part), .f.qi4 "
                                     "(whole frame, with the .t.qi4 beside it),\n"
                                     ".128x128t.cw1 (thumbnail), .raw (pixels, with the .desc beside it). "
                                     "Grey is windowed as the files say.\n"
                                     "SERIES.index#17 is the 17th frame of a pack, SERIES.index#17.p.qi4 its "
                                     "preview.\n\n"
                                     "Exit status: 0 all shown, 1 some failed, 2 usage, 4 all failed.",
                                     true};

void printSummary(const std::string& path, const picture::Frame& frame) {
    const char* format = frame.bytesPerPixel == 3   ? "RGB"
                         : frame.bytesPerPixel == 2 ? "16-bit grey"
                                                    : "8-bit grey";
    std::printf("%s: %d x %d", path.c_str(), frame.width, frame.height);
    if (frame.reduce > 0) std::printf(" (1/%d of each side)", 1 << frame.reduce);
    std::printf(", %s, %d bits used", format, frame.bitsUsed);
    if (frame.levels >= 0) std::printf(", %d levels", frame.levels);
    std::printf("; %s, %llu bytes", frame.coding.c_str(), static_cast<unsigned long long>(frame.bytesUsed));
    if (frame.bytesInAll && *frame.bytesInAll > 0)
        std::printf(" of %llu (%.1f %%)", static_cast<unsigned long long>(*frame.bytesInAll),
                    100.0 * static_cast<double>(frame.bytesUsed) / static_cast<double>(*frame.bytesInAll));
    std::printf("; %s\n", frame.state.c_str());
}

}  // namespace

int runShow(const std::vector<std::string>& args) {
    picture::CommandWords words;
    int exitCode = kAllDone;
    if (!parseWords(args, kHelp, words, exitCode)) return exitCode;

    std::vector<picture::Picture> pictures;
    const size_t failed = picture::forEachFile(words.files, [&](const std::string& named) {
        const std::string path = picture::wholePath(named);
        const picture::Frame frame = picture::loadFrame(path, words.desc, words.reduce);
        printSummary(path, frame);
        if (!words.output.empty()) pictures.push_back(developed(frame));
    });
    if (pictures.empty()) return exitCodeOf(words.files.size(), failed);
    try {
        writePng(words.output, pictures.size() == 1 ? pictures.front() : sideBySide(pictures));
    } catch (const picture::PictureError& error) {
        std::cerr << "vintak: " << error.what() << "\n";
        return kAllFailed;
    }
    return exitCodeOf(words.files.size(), failed);
}
