#include "tools/picture/frame.h"

#include <cstring>

#include "kelt4/decoder.h"
#include "keltlegacy/decoder.h"
#include "tools/picture/descline.h"
#include "tools/picture/files.h"
#include "tools/picture/streamfile.h"

namespace picture {
namespace {

const char* stateOf(const dvq::kelt4::DecodedFrame& decoded) {
    const bool isWhole = decoded.info.status == dvq::kelt4::DecodeStatus::kComplete;
    return isWhole && decoded.reduce > 0 ? "reduced, all that this size needs is there"
                                         : describe(decoded.info.status);
}

Frame loadStream(const std::string& path, int reduce) {
    StreamFile file = readStreamFile(path);
    dvq::kelt4::DecodedFrame decoded = dvq::kelt4::decode(file.payload, {.reduce = reduce});
    if (!hasPicture(decoded.info.status)) throw PictureError(describe(decoded.info.status));
    Frame frame;
    frame.coding = "Kelt stream";
    frame.state = stateOf(decoded);
    frame.width = decoded.width;
    frame.height = decoded.height;
    frame.reduce = decoded.reduce;
    frame.bytesPerPixel = decoded.info.header.bytesPerPixel();
    frame.bitsUsed = decoded.info.header.bitsUsed();
    frame.levels = decoded.info.levels;
    frame.bytesUsed = dvq::kelt4::CKeltHeader::kSize + (decoded.info.bitsRead + 7) / 8;
    frame.bytesInAll = file.wholeLength;
    frame.window = file.window;
    frame.samples = std::move(decoded.pixels);
    return frame;
}

std::optional<DisplayWindow> windowOfThumbnail(const std::string& path, const std::string& descPath) {
    if (const auto window = windowOfSiblings(path)) return window;
    const FrameName name = frameNameOf(path);
    const std::string desc = descPath.empty() ? name.descriptor : descPath;
    if (name.frame == 0 || !isFile(desc)) return std::nullopt;
    try {
        return readDescLine(desc, name.frame).window;
    } catch (const PictureError&) {
        return std::nullopt;
    }
}

Frame loadThumbnail(const std::string& path, const std::string& descPath) {
    constexpr size_t kHeaderBytes = 10;
    const std::vector<uint8_t> bytes = readFile(path);
    keltlegacy::Picture decoded;
    const keltlegacy::DecodeStatus status = keltlegacy::decode(bytes, decoded);
    if (status != keltlegacy::DecodeStatus::Ok) throw PictureError(describe(status));
    Frame frame;
    frame.coding = "legacy stream";
    frame.state = decoded.complete ? "the stream is complete and the picture exact"
                                   : "the stream was cut and the picture is an approximation";
    frame.width = decoded.width;
    frame.height = decoded.height;
    frame.bytesPerPixel = decoded.bytesPerPixel;
    frame.bitsUsed = decoded.bitsUsed;
    frame.levels = decoded.levels;
    frame.bytesUsed = kHeaderBytes + (decoded.bitsRead + 7) / 8;
    if (decoded.complete) frame.bytesInAll = frame.bytesUsed;
    frame.window = windowOfThumbnail(path, descPath);
    frame.samples = std::move(decoded.samples);
    return frame;
}

Frame loadPixels(const std::string& path, const std::string& descPath) {
    Frame frame;
    frame.samples = readFile(path);
    const FrameName name = frameNameOf(path);
    if (name.frame == 0) throw PictureError("the name does not end in _N.raw with the frame's number N");
    const DescLine line = readDescLine(descPath.empty() ? name.descriptor : descPath, name.frame);
    const uint64_t size = frame.samples.size();
    if (line.columns < 1 || line.rows < 1 || line.columns > 65535 || line.rows > 65535)
        throw PictureError("the description gives an impossible size");
    const uint64_t pixels = static_cast<uint64_t>(line.columns) * static_cast<uint64_t>(line.rows);
    // Grey samples of few bits are stored in one or two bytes; only the length tells.
    const uint64_t bytesPerPixel = size / pixels;
    const bool fits = line.colour ? bytesPerPixel == 3 : bytesPerPixel == 1 || bytesPerPixel == 2;
    if (!fits || size % pixels != 0)
        throw PictureError(std::to_string(size) + " bytes are not " + std::to_string(line.columns) + " x " +
                           std::to_string(line.rows) + " pixels");
    frame.coding = "pixels";
    frame.state = "the picture is exact";
    frame.width = line.columns;
    frame.height = line.rows;
    frame.bytesPerPixel = static_cast<int>(bytesPerPixel);
    frame.bitsUsed = line.bitsUsed;
    frame.bytesUsed = size;
    frame.bytesInAll = size;
    frame.window = line.window;
    return frame;
}

std::vector<uint16_t> greySamples(const Frame& frame) {
    if (frame.bytesPerPixel == 1) return {frame.samples.begin(), frame.samples.end()};
    std::vector<uint16_t> samples(frame.samples.size() / 2);
    std::memcpy(samples.data(), frame.samples.data(), samples.size() * 2);
    return samples;
}

}  // namespace

Frame loadFrame(const std::string& path, const std::string& descPath, int reduce) {
    for (const char* suffix : {kPreviewSuffix, kFirstPartSuffix, kRestSuffix})
        if (path.ends_with(suffix)) return loadStream(path, reduce);
    if (reduce > 0) throw PictureError("only a stream (.qi4) can be shown reduced");
    if (path.ends_with(kThumbnailSuffix)) return loadThumbnail(path, descPath);
    if (path.ends_with(kPixelSuffix)) return loadPixels(path, descPath);
    throw PictureError(whyUnknown(path));
}

Picture developed(const Frame& frame) {
    if (frame.bytesPerPixel == 3) return {frame.width, frame.height, 3, frame.samples};
    const std::vector<uint16_t> samples = greySamples(frame);
    return {frame.width, frame.height, 1,
            applyWindow(samples, frame.window ? *frame.window : windowOverRange(samples))};
}

}  // namespace picture
