#include <cinttypes>
#include <cstdio>

#include "hsutils/transfersyntaxes.h"
#include "kelt4/decoder.h"
#include "keltlegacy/decoder.h"
#include "tools/exitcodes.h"
#include "tools/picture/commands.h"
#include "tools/picture/commandwords.h"
#include "tools/picture/descline.h"
#include "tools/picture/files.h"
#include "tools/picture/packedframe.h"
#include "tools/picture/streamfile.h"

namespace {

constexpr picture::CommandHelp kHelp{
    "info FILE... | --syntaxes [options]",
    "Prints the headers of the viewer's files and the parts of their streams in stream order: .p.qi4, "
    ".t.qi4,\n"
    ".f.qi4 (with the .t.qi4 beside it), .128x128t.cw1; for .raw the line of the .desc;\n"
    "of frames in a pack, SERIES.index#17 or SERIES.index#17.t.qi4.\n\n"
    "Exit status: 0 all done, 1 some failed, 2 usage, 4 all failed.",
    false};

void printWindow(const picture::DisplayWindow& window) {
    std::printf("  intercept %g, slope %g, window width %g, centre %g%s\n", window.intercept, window.slope,
                window.width, window.center, window.inverted ? ", MONOCHROME1" : "");
}

void printStream(const std::string& path) {
    const picture::StreamFile file = picture::readStreamFile(path);
    const dvq::kelt4::PayloadInfo info = dvq::kelt4::inspect(file.payload);
    if (!hasPicture(info.status)) throw picture::PictureError(describe(info.status));
    std::printf("%s: %zu bytes of stream\n", path.c_str(), file.payload.size());
    if (file.window) printWindow(*file.window);
    std::printf(
        "  KT41: %d bytes a pixel, %d bits used, %d x %d; top plane %d, %d levels, %zu chunks, %" PRIu64
        " of %" PRIu64 " bits read\n",
        info.header.bytesPerPixel(), info.header.bitsUsed(), info.header.width(), info.header.height(),
        info.topPlane, info.levels, info.chunks.size(), info.bitsRead, info.bitsPresent);
    std::printf("  %12s %9s %5s %-12s %5s %10s\n", "first bit", "component", "class", "chunk", "plane",
                "bits");
    for (const dvq::kelt4::ChunkInfo& chunk : info.chunks)
        std::printf("  %12" PRIu64 " %9d %5d %-12s %5d %10" PRIu64 "\n", chunk.offset, chunk.component,
                    chunk.levelClass, chunk.refinement ? "refinement" : "significance", chunk.plane,
                    chunk.bits);
    std::printf("  %s\n", describe(info.status));
}

void printThumbnail(const std::string& path) {
    const std::vector<uint8_t> bytes = picture::readFile(path);
    keltlegacy::Picture decoded;
    const keltlegacy::DecodeStatus status = keltlegacy::decode(bytes, decoded);
    if (status != keltlegacy::DecodeStatus::Ok) throw picture::PictureError(describe(status));
    std::printf(
        "%s: %zu bytes\n  KT10: %d bytes a pixel, %d bits used, %d x %d; top plane %d, %d levels, %s\n",
        path.c_str(), bytes.size(), decoded.bytesPerPixel, decoded.bitsUsed, decoded.width, decoded.height,
        decoded.topPlane, decoded.levels, decoded.complete ? "complete" : "cut at its budget");
    std::printf("  %9s %5s %5s %15s %17s %3s\n", "component", "class", "plane", "refinement bits",
                "significance bits", "k");
    for (const keltlegacy::PlaneRecord& plane : decoded.planes)
        std::printf("  %9d %5d %5d %15" PRIu64 " %17" PRIu64 " %3d\n", plane.component, plane.levelClass,
                    plane.plane, plane.refinementBits, plane.significanceBits, plane.golombParameter);
}

void printPixels(const std::string& path, const std::string& descPath) {
    const size_t size = picture::readFile(path).size();
    const picture::FrameName name = picture::frameNameOf(path);
    if (name.frame == 0)
        throw picture::PictureError("the name does not end in _N.raw with the frame's number N");
    const picture::DescLine line =
        picture::readDescLine(descPath.empty() ? name.descriptor : descPath, name.frame);
    std::printf("%s: %zu bytes\n  %d x %d, %s, %d bits used\n", path.c_str(), size, line.columns, line.rows,
                line.colour ? "RGB" : "grey", line.bitsUsed);
    printWindow(line.window);
}

/// A line for each: what `cut` and `awk` take apart, and a person reads.
void printSyntaxes() {
    for (const TransferSyntax& syntax : readableTransferSyntaxes())
        std::printf("%-24s %s\n", std::string(syntax.uid).c_str(), std::string(syntax.name).c_str());
}

}  // namespace

int runInfo(const std::vector<std::string>& args) {
    picture::CommandWords words;
    int exitCode = kAllDone;
    if (!parseWords(args, kHelp, words, exitCode)) return exitCode;
    if (words.syntaxes) printSyntaxes();
    const size_t failed = picture::forEachFile(words.files, [&](const std::string& named) {
        const std::string path = picture::wholePath(named);
        if (path.ends_with(picture::kThumbnailSuffix)) return printThumbnail(path);
        if (path.ends_with(picture::kPixelSuffix)) return printPixels(path, words.desc);
        if (path.ends_with(".qi4")) return printStream(path);
        throw picture::PictureError(picture::whyUnknown(path));
    });
    return words.files.empty() ? kAllDone : exitCodeOf(words.files.size(), failed);
}
