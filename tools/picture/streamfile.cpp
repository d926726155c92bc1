#include "tools/picture/streamfile.h"

#include <cstring>

#include "tools/picture/elementheader.h"
#include "tools/picture/files.h"

namespace picture {
namespace {

bool startsStream(const std::vector<uint8_t>& bytes) {
    return bytes.size() >= 4 && std::memcmp(bytes.data(), "KT41", 4) == 0;
}

/// PREFIX_N + suffix for any file of frame N; empty when the name tells no frame.
std::string sibling(const std::string& path, const char* suffix) {
    const FrameName name = frameNameOf(path);
    return name.frame == 0 ? std::string() : name.stem + suffix;
}

StreamFile readElement(const std::string& path) {
    std::vector<uint8_t> bytes = readFile(path);
    const std::optional<DisplayWindow> window = readElementHeader(bytes);
    if (!window) throw PictureError("does not begin with a QXID header of a known version");
    bytes.erase(bytes.begin(), bytes.begin() + kElementHeaderSize);
    return {std::move(bytes), window, std::nullopt};
}

StreamFile readWhole(const std::string& path) {
    std::vector<uint8_t> rest = readFile(path);
    if (startsStream(rest)) {
        const uint64_t length = rest.size();
        return {std::move(rest), windowOfSiblings(path), length};
    }
    const std::string firstPart = sibling(path, kFirstPartSuffix);
    if (!isFile(firstPart)) throw PictureError("holds the rest of a stream, and its .t.qi4 is not beside it");
    StreamFile stream = readElement(firstPart);
    stream.payload.insert(stream.payload.end(), rest.begin(), rest.end());
    stream.wholeLength = stream.payload.size();
    return stream;
}

std::optional<uint64_t> wholeLength(const std::string& path) {
    const std::string firstPart = sibling(path, kFirstPartSuffix), rest = sibling(path, kRestSuffix);
    if (!isFile(firstPart) || !isFile(rest)) return std::nullopt;
    try {
        return readElement(firstPart).payload.size() + readFile(rest).size();
    } catch (const PictureError&) {
        return std::nullopt;
    }
}

}  // namespace

StreamFile readStreamFile(const std::string& path) {
    if (path.ends_with(kRestSuffix)) return readWhole(path);
    StreamFile stream = readElement(path);
    stream.wholeLength = wholeLength(path);
    return stream;
}

std::optional<DisplayWindow> windowOfSiblings(const std::string& path) {
    for (const char* suffix : {kPreviewSuffix, kFirstPartSuffix}) {
        const std::string element = sibling(path, suffix);
        if (!isFile(element)) continue;
        try {
            return readElement(element).window;
        } catch (const PictureError&) {
            continue;
        }
    }
    return std::nullopt;
}

}  // namespace picture
