#include "fuzz/requestbytes.h"

#include <cstring>

#include "fuzz/require.h"
#include "vintakd/vintakd_if.h"

namespace {

void setText(char (&field)[vintakd::kTextFieldSize], const std::string& text) {
    REQUIRE(text.size() <= sizeof field);
    std::memcpy(field, text.data(), text.size());
}

}  // namespace

std::string requestBytes(const VintakRequest& request) {
    vintakd::VintakMsgIn header;
    std::memset(&header, 0, sizeof header);
    setText(header.inputFile, request.inputFile);
    setText(header.outputPrefix, request.outputPrefix);
    setText(header.cachePrefix, request.cachePrefix);
    header.verbose = request.verbose;
    header.dumponly = request.dumponly;
    header.escapeNewLines = request.escapeNewLines;
    header.needOptimize = request.needOptimize;
    header.noCached = request.noCached;
    header.extras = request.folders.empty() ? 0 : vintakd::requestextras::kFolders;
    header.extrasCheck = vintakd::requestextras::checkOf(header.extras);
    header.writeMask = request.writeMask;
    header.streamParameter = request.streamParameter;
    header.specificFrame = request.specificFrame;
    header.numTags = static_cast<int32_t>(request.tags.size());
    header.numTagsOnce = static_cast<int32_t>(request.tagsOnce);
    header.numFiles = static_cast<int32_t>(request.files.size());
    std::string bytes(reinterpret_cast<const char*>(&header), sizeof header);
    const auto append = [&bytes](const auto& value) {
        bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
    };
    for (const VintakRequest::Tag& tag : request.tags) {
        append(tag.group);
        append(tag.element);
    }
    for (const std::string& file : request.files) {
        append(static_cast<uint32_t>(file.size()));
        bytes += file;
    }
    for (const vintakd::ResultFolders& folders : request.folders)
        append(folders);
    return bytes;
}
