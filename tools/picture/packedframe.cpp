#include "tools/picture/packedframe.h"

#include <charconv>

#include "pack/PackError.h"
#include "pack/PackIndex.h"
#include "tools/picture/files.h"

namespace picture {
namespace {

constexpr uint32_t kLargest = uint32_t{1} << 30;
constexpr std::string_view kMark = ".index#";

/// Does something with the frame's record; what is wrong with the pack becomes a PictureError.
template <typename Action>
auto withFrame(const PackedFile& file, Action action) {
    try {
        const pack::PackIndex index(file.index);
        return action(index, index.frame(file.place - 1));
    } catch (const pack::PackError& error) {
        throw PictureError(error.what());
    }
}

/// The element of a suffix; nothing for another one.
std::optional<pack::Element> elementOf(const std::string& suffix) {
    for (size_t i = 0; i < pack::kElements.size(); ++i)
        if (pack::kElements[i].suffix == suffix) return pack::Element{static_cast<int>(i)};
    return std::nullopt;
}

}  // namespace

std::optional<PackedFile> packedFileOf(const std::string& path) {
    const size_t mark = path.rfind(kMark);
    if (mark == std::string::npos) return std::nullopt;
    PackedFile file{.index = path.substr(0, mark + kMark.size() - 1), .suffix = {}};
    const char *first = path.data() + mark + kMark.size(), *last = path.data() + path.size();
    const auto [end, error] = std::from_chars(first, last, file.place);
    if (error != std::errc() || file.place == 0 || (end != last && *end != '.')) return std::nullopt;
    file.suffix.assign(end, last);
    return file;
}

std::vector<uint8_t> readPacked(const PackedFile& file) {
    return withFrame(file, [&](const pack::PackIndex& index, const pack::FrameRecord& frame) {
        if (file.suffix == ".desc") {
            const std::string line = index.text(frame.line);
            return std::vector<uint8_t>(line.begin(), line.end());
        }
        const auto element = elementOf(file.suffix);
        if (!element) throw PictureError("a pack holds no " + file.suffix);
        if (frame.has(*element) && frame.of(*element).length > kLargest)
            throw PictureError("larger than 1 GiB");
        return index.read(frame, *element);
    });
}

bool isInPack(const PackedFile& file) {
    return withFrame(file, [&](const pack::PackIndex&, const pack::FrameRecord& frame) {
        const auto element = elementOf(file.suffix);
        return file.suffix == ".desc" || (element && frame.has(*element));
    });
}

std::string wholePath(const std::string& path) {
    const auto file = packedFileOf(path);
    if (!file || !file->suffix.empty()) return path;
    using enum pack::Element;
    return withFrame(*file, [&](const pack::PackIndex&, const pack::FrameRecord& frame) {
        const auto wholeStream = frame.has(head) && frame.has(rest);
        for (const pack::Element element : {rest, raw, head, preview, thumbnail})
            if (frame.has(element) && (element != rest || wholeStream))
                return path + std::string(pack::kElements[static_cast<size_t>(element)].suffix);
        throw PictureError("the frame has nothing to show");
    });
}

}  // namespace picture
