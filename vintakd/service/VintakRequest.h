#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vintakd/folderidentity.h"
#include "vintakd/ipc/Message.h"
#include "vintakd/vintakd_if.h"

/// A request as the servant works with it: every count, length and text of the client's bytes checked. This
/// is the only place that reads a request's bytes.
struct VintakRequest {
    struct Tag {
        uint16_t group;
        uint16_t element;
    };

    std::string inputFile;
    std::string outputPrefix;
    std::string cachePrefix;
    bool verbose = false;
    bool dumponly = false;
    bool escapeNewLines = false;
    bool needOptimize = false;
    bool noCached = false;
    bool wantWarnings = false;
    int32_t writeMask = 0;
    float streamParameter = 0;
    int32_t specificFrame = 0;
    vintakd::ConversionPart part;    ///< of one object without tags; `specificFrame` is 0 then
    std::vector<Tag> tags;           ///< empty: a conversion or dump
    size_t tagsOnce = 0;             ///< how many of the first tags are read from the first file only
    std::vector<std::string> files;  ///< names to append to the prefixes; at least one, which may be empty
    std::optional<uint64_t> waited;  ///< ns that the client waited for a channel, where it tells
    std::vector<vintakd::ResultFolders> folders;  ///< as the client sees them: one for each name, or none
};

/// Limits on what a request may ask for.
namespace requestlimits {
inline constexpr uint64_t kBytes = uint64_t{64} << 20;  ///< of the whole message
inline constexpr size_t kTags = 16384;                  ///< entries of the tag list
inline constexpr size_t kFiles = size_t{1} << 20;       ///< entries of the file list
inline constexpr uint64_t kValues = uint64_t{4} << 20;  ///< tag values of one answer: tags times files
}  // namespace requestlimits

/// Whether `message` is a ping: its first four bytes say so.
bool isPing(const ipc::Message& message);

/// Whether whoever sent `message` wants to know the class of an error.
bool wantsErrorClass(const ipc::Message& message);

/// Reads a request. Throws VintakdErrorException, with a text for the client, when the message is shorter
/// than a request's header or than it says, or asks for more than the limits.
VintakRequest parseRequest(const ipc::Message& message);
