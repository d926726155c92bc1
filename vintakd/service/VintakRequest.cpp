#include "vintakd/service/VintakRequest.h"

#include <algorithm>
#include <cstring>

#include "hsutils/ClassedError.h"
#include "vintakd/viewer/conversionfiles.h"

namespace {

using vintakd::VintakMsgIn;

[[noreturn]] void refuse(const std::string& text) {
    throw ClassedError(text, ErrorClass::request);
}

/// Copies a value out of the message; the caller has checked that it lies within.
template <typename T>
T read(const ipc::Message& message, uint64_t offset) {
    T value;
    std::memcpy(&value, message.getPointer() + offset, sizeof value);
    return value;
}

/// A text field: up to its terminator, or whole where the client left none.
std::string readText(const ipc::Message& message, uint64_t offset) {
    const char* field = message.getPointer() + offset;
    return {field, strnlen(field, vintakd::kTextFieldSize)};
}

/// A flag may hold any byte, so it is never read as a bool.
bool readFlag(const ipc::Message& message, uint64_t offset) {
    return read<uint8_t>(message, offset) != 0;
}

/// Which of requestextras the request has.
uint8_t readExtras(const ipc::Message& message) {
    const auto extras = read<uint8_t>(message, offsetof(VintakMsgIn, extras));
    const auto check = read<uint8_t>(message, offsetof(VintakMsgIn, extrasCheck));
    const bool isMeant =
        extras <= vintakd::requestextras::kAll && check == vintakd::requestextras::checkOf(extras);
    return isMeant ? extras : uint8_t{0};
}

uint64_t readCount(const ipc::Message& message, uint64_t offset) {
    return static_cast<uint64_t>(std::max(read<int32_t>(message, offset), 0));
}

std::vector<VintakRequest::Tag> readTags(const ipc::Message& message, uint64_t count) {
    std::vector<VintakRequest::Tag> tags;
    if (sizeof(VintakMsgIn) + 4 * count > message.getSize()) return tags;
    if (count > requestlimits::kTags) {
        refuse("The request lists " + std::to_string(count) + " tags, the limit is " +
               std::to_string(requestlimits::kTags));
    }
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t offset = sizeof(VintakMsgIn) + 4 * i;
        tags.push_back({read<uint16_t>(message, offset), read<uint16_t>(message, offset + 2)});
    }
    return tags;
}

/// Moves `offset` behind the list.
std::vector<std::string> readFiles(const ipc::Message& message, uint64_t& offset, uint64_t count) {
    std::vector<std::string> files;
    const uint64_t size = message.getSize();
    while (files.size() < count && offset + sizeof(uint32_t) <= size) {
        const uint64_t length = read<uint32_t>(message, offset);
        offset += sizeof(uint32_t);
        if (length > size - offset) break;
        if (files.size() == requestlimits::kFiles)
            refuse("The request lists more than " + std::to_string(requestlimits::kFiles) + " files");
        files.emplace_back(message.getPointer() + offset, length);
        offset += length;
    }
    return files;
}

std::vector<vintakd::ResultFolders> readFolders(const ipc::Message& message, uint64_t offset,
                                                uint64_t count) {
    constexpr uint64_t kSize = sizeof(vintakd::ResultFolders);
    if (offset > message.getSize() || message.getSize() - offset < kSize * count)
        refuse("The request ends before the folders of its " + std::to_string(count) + " files");
    std::vector<vintakd::ResultFolders> folders;
    for (uint64_t i = 0; i < count; ++i)
        folders.push_back(read<vintakd::ResultFolders>(message, offset + kSize * i));
    return folders;
}

/// The part of a conversion that the request is. Throws for one that makes no sense.
vintakd::ConversionPart readPart(const ipc::Message& message, uint64_t offset, const VintakRequest& request) {
    using vintakd::ConversionPart;
    if (offset > message.getSize() || message.getSize() - offset < sizeof(ConversionPart))
        refuse("The request ends before the part of its conversion");
    const auto part = read<ConversionPart>(message, offset);
    const bool isNumber = part.number == ConversionPart::kUndo || part.number <= part.parts;
    if (part.parts == 0 || part.parts > ConversionPart::kMostParts || !isNumber || part.first == 0 ||
        part.first > part.last || part.last > INT32_MAX)
        refuse("The request is for no part of a conversion");
    if (!request.tags.empty() || request.dumponly || request.verbose || request.outputPrefix.empty() ||
        request.files != std::vector<std::string>{""})
        refuse("Only a conversion of one object has parts");
    return part;
}

/// What follows the file list, from `offset` on: what the extras name.
void readTrailer(const ipc::Message& message, uint64_t offset, uint64_t numFiles, VintakRequest& request) {
    const uint8_t extras = readExtras(message);
    if ((extras & vintakd::requestextras::kFolders) != 0) {
        if (request.files.size() < numFiles) refuse("The request ends within its list of files");
        request.folders = readFolders(message, offset, request.files.size());
        offset += sizeof(vintakd::ResultFolders) * request.folders.size();
    }
    if ((extras & vintakd::requestextras::kPart) != 0) {
        request.part = readPart(message, offset, request);
        request.specificFrame = 0;
        offset += sizeof(vintakd::ConversionPart);
    }
    if ((extras & vintakd::requestextras::kWaited) == 0) return;
    if (offset > message.getSize() || message.getSize() - offset < sizeof(uint64_t))
        refuse("The request ends before the time that its client waited");
    request.waited = read<uint64_t>(message, offset);
}

}  // namespace

bool isPing(const ipc::Message& message) {
    return message.getSize() >= 4 && std::memcmp(message.getPointer(), "PING", 4) == 0;
}

bool wantsErrorClass(const ipc::Message& message) {
    return message.getSize() >= sizeof(VintakMsgIn) &&
           (readExtras(message) & vintakd::requestextras::kErrorClass) != 0;
}

VintakRequest parseRequest(const ipc::Message& message) {
    if (message.getSize() < sizeof(VintakMsgIn)) {
        refuse("The request has " + std::to_string(message.getSize()) + " bytes, its header alone needs " +
               std::to_string(sizeof(VintakMsgIn)));
    }
    VintakRequest request;
    request.inputFile = readText(message, offsetof(VintakMsgIn, inputFile));
    request.outputPrefix = readText(message, offsetof(VintakMsgIn, outputPrefix));
    request.cachePrefix = readText(message, offsetof(VintakMsgIn, cachePrefix));
    request.verbose = readFlag(message, offsetof(VintakMsgIn, verbose));
    request.dumponly = readFlag(message, offsetof(VintakMsgIn, dumponly));
    request.escapeNewLines = readFlag(message, offsetof(VintakMsgIn, escapeNewLines));
    request.needOptimize = readFlag(message, offsetof(VintakMsgIn, needOptimize));
    request.noCached = readFlag(message, offsetof(VintakMsgIn, noCached));
    request.wantWarnings = readFlag(message, offsetof(VintakMsgIn, wantWarnings));
    request.writeMask = read<int32_t>(message, offsetof(VintakMsgIn, writeMask));
    request.streamParameter = read<float>(message, offsetof(VintakMsgIn, streamParameter));
    request.specificFrame = read<int32_t>(message, offsetof(VintakMsgIn, specificFrame));

    const uint64_t numTags = readCount(message, offsetof(VintakMsgIn, numTags));
    request.tags = readTags(message, numTags);
    request.tagsOnce =
        std::min<uint64_t>(readCount(message, offsetof(VintakMsgIn, numTagsOnce)), request.tags.size());

    const uint64_t numFiles = readCount(message, offsetof(VintakMsgIn, numFiles));
    uint64_t offset = sizeof(VintakMsgIn) + 4 * numTags;
    request.files = numFiles == 0 ? std::vector<std::string>{""} : readFiles(message, offset, numFiles);
    if (request.tags.size() * static_cast<uint64_t>(request.files.size()) > requestlimits::kValues) {
        refuse("The request asks for more than " + std::to_string(requestlimits::kValues) + " values");
    }
    readTrailer(message, offset, numFiles, request);

    // A pack is of a whole object; of bits that mean nothing the request may have any.
    constexpr uint32_t kWithoutPack = writemask::kKnown & ~writemask::kPacked;
    const auto mask = static_cast<uint32_t>(request.writeMask);
    if (request.specificFrame > 0 && (mask & ~kWithoutPack) == writemask::kPacked)
        refuse("A single frame is not packed");
    return request;
}
