#include "tools/command/resultfiles.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <tuple>

#include "pack/PackError.h"
#include "pack/PackIndex.h"
#include "tools/command/Interruption.h"

namespace {

/// One kind of file that a frame may have, see docs/formats.md.
struct FrameFile {
    const char* suffix;
    bool cached;
    int wantedBy;
    int unwantedBy;
    bool mayBeEmpty = false;
};

constexpr FrameFile kFrameFiles[] = {
    {".raw", true, 0, 0x10},         {".p.qi4", false, 0x01, 0},       {".t.qi4", true, 0x02, 0},
    {".f.qi4", true, 0x02, 0, true}, {".128x128t.raw", true, 0, 0x14}, {".128x128t.cw1", false, 0, 0x04},
};

bool isPacked(const Request& request) {
    return (request.writeMask & kPackedMask) != 0;
}

bool wants(const Request& request, const FrameFile& kind) {
    return !(kind.cached && request.noCached) && (request.writeMask & kind.wantedBy) == kind.wantedBy &&
           (request.writeMask & kind.unwantedBy) == 0;
}

/// As a file of its own.
bool asksFor(const Request& request, const FrameFile& kind) {
    return !isPacked(request) && wants(request, kind);
}

std::string pathOf(const Request& request, const FrameFile& kind, int frame) {
    return (kind.cached ? request.cachePrefix : request.outputPrefix) + "_" + std::to_string(frame) +
           kind.suffix;
}

/// The frames that a descriptor names; nothing when it is not there or its last line is not whole.
std::optional<std::vector<int>> describedFrames(const std::string& path) {
    std::ifstream file(path);
    if (!file) return std::nullopt;
    std::vector<int> frames;
    for (std::string line; std::getline(file, line);) {
        int frame = 0;
        if (file.eof() || !(std::istringstream(line) >> frame)) return std::nullopt;
        frames.push_back(frame);
    }
    return frames;
}

std::optional<struct stat> fileAt(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return status;
}

/// Not later than.
bool upTo(const timespec& one, const timespec& other) {
    return std::tie(one.tv_sec, one.tv_nsec) <= std::tie(other.tv_sec, other.tv_nsec);
}

/// What the processed copy and the object say of themselves.
struct Declared {
    size_t frames = 0;  ///< of the object
    size_t images = 0;  ///< that were converted, as the last element of the copy counts them
    bool document = false;
};

std::vector<std::string> fields(const std::string& text, char separator) {
    std::vector<std::string> result;
    std::istringstream stream(text);
    for (std::string field; std::getline(stream, field, separator);)
        result.push_back(field);
    return result;
}

std::optional<Declared> declaredBy(const std::string& copy, Session& session) {
    Request request;
    request.inputFile = copy;
    request.dumponly = true;
    // Number of Frames, MIME Type of Encapsulated Document, bits used of each image in our private block
    request.tags = {0x0028, 0x0008, 0x0042, 0x0012, 0xF215, 0x101E};
    const Outcome outcome = session.ask(request, Interruption::came);
    if (!outcome.done) return std::nullopt;
    const std::vector<std::string> values = fields(outcome.text, ';');
    if (values.size() != 3) return std::nullopt;
    Declared declared;
    declared.images = fields(values[2], '\\').size();
    const long frames = std::strtol(values[0].c_str(), nullptr, 10);
    declared.frames = frames > 0 ? static_cast<size_t>(frames) : std::min<size_t>(declared.images, 1);
    declared.document = values[1].starts_with("application/pdf");
    return declared;
}

/// Whether there is a pack of so many frames whose files are as long as its index says and `belong` to the
/// object. What the frames have in it shall be what is asked for: the first one speaks for all.
bool hasPack(const Request& request, size_t frames,
             const std::function<bool(const std::optional<struct stat>&)>& belongs) {
    try {
        const pack::PackIndex index(request.outputPrefix + std::string(pack::kIndexSuffix));
        if (index.head().frames != frames || !belongs(fileAt(index.path()))) return false;
        for (size_t i = 0; i < pack::kStoreSuffixes.size(); ++i) {
            const auto file = fileAt(request.outputPrefix + std::string(pack::kStoreSuffixes[i]));
            if (index.head().storeBytes[i] == 0) continue;
            if (!belongs(file) || static_cast<uint64_t>(file->st_size) != index.head().storeBytes[i])
                return false;
        }
        if (frames == 0) return true;
        const pack::FrameRecord first = index.frame(0);
        for (const FrameFile& kind : kFrameFiles) {
            const auto* const element =
                std::find_if(pack::kElements.begin(), pack::kElements.end(),
                             [&](const pack::ElementKind& each) { return each.suffix == kind.suffix; });
            const auto place = static_cast<size_t>(element - pack::kElements.begin());
            if (wants(request, kind) && !first.has(pack::Element{static_cast<int>(place)})) return false;
        }
        return true;
    } catch (const pack::PackError&) {
        return false;
    }
}

}  // namespace

std::vector<ResultFile> resultsOf(const Request& request) {
    std::vector<ResultFile> found;
    const auto add = [&found](const std::string& path) {
        if (const auto status = fileAt(path)) found.push_back({path, static_cast<uint64_t>(status->st_size)});
    };
    std::vector<int> frames{request.specificFrame};
    if (request.specificFrame == 0) {
        const std::string descriptor = request.outputPrefix + ".desc";
        add(descriptor);
        if (!request.noCached) add(request.outputPrefix + ".pdcm");
        frames = describedFrames(descriptor).value_or(std::vector<int>{});
    }
    if (isPacked(request)) {
        add(request.outputPrefix + std::string(pack::kIndexSuffix));
        for (const std::string_view suffix : pack::kStoreSuffixes)
            add(request.outputPrefix + std::string(suffix));
    }
    for (const char* suffix : {".obsinfo", ".fingerprint"})
        add(request.outputPrefix + suffix);
    if (!request.noCached) add(request.cachePrefix + ".pdf");
    for (const int frame : frames)
        for (const FrameFile& kind : kFrameFiles)
            if (asksFor(request, kind)) add(pathOf(request, kind, frame));
    return found;
}

bool hasCompleteResults(const Request& request, Session& session) {
    const std::string descriptor = request.outputPrefix + ".desc", copy = request.outputPrefix + ".pdcm";
    const auto object = fileAt(request.inputFile), last = fileAt(copy), described = fileAt(descriptor);
    if (!object || !last || !described || last->st_size == 0) return false;
    const auto belongs = [&](const std::optional<struct stat>& file) {
        return file && upTo(object->st_ctim, file->st_mtim) && upTo(object->st_mtim, file->st_mtim) &&
               upTo(file->st_mtim, last->st_mtim);
    };
    const auto whole = [&](const std::string& path, bool mayBeEmpty = false) {
        const auto file = fileAt(path);
        return belongs(file) && (mayBeEmpty || file->st_size > 0);
    };
    const auto frames = describedFrames(descriptor);
    if (!frames || !belongs(described)) return false;
    for (const int frame : *frames)
        for (const FrameFile& kind : kFrameFiles)
            if (asksFor(request, kind) && !whole(pathOf(request, kind, frame), kind.mayBeEmpty)) return false;
    if (isPacked(request) && !hasPack(request, frames->size(), belongs)) return false;
    const std::optional<Declared> declared = declaredBy(copy, session);
    return declared && declared->images == frames->size() && declared->frames == frames->size() &&
           (!declared->document || whole(request.cachePrefix + ".pdf"));
}
