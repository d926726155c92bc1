#include <cstring>

#include "fuzz/inputbytes.h"
#include "fuzz/requestbytes.h"
#include "fuzz/require.h"
#include "hsutils/VintakdErrorException.h"
#include "vintakd/service/TagTable.h"
#include "vintakd/service/VintakRequest.h"
#include "vintakd/vintakd_if.h"

/// The door for requests. The first byte of the input chooses: the rest is a whole request, or the end of one
/// after 1024-byte texts that would only be in the mutations' way.
namespace {

constexpr size_t kTextBytes = 3 * vintakd::kTextFieldSize;

ipc::Message messageOf(const std::string& bytes) {
    char* copy = new char[bytes.size()];
    // NOLINTNEXTLINE(bugprone-not-null-terminated-result): a field without a terminator is the point
    std::memcpy(copy, bytes.data(), bytes.size());
    return {copy, bytes.size()};
}

std::string expanded(InputBytes input) {
    std::string request(kTextBytes, '\0');
    for (size_t field = 0; field < 3; ++field) {
        const std::string text = input.text();
        request.replace(field * vintakd::kTextFieldSize, text.size(), text);
    }
    request.append(input.rest().begin(), input.rest().end());
    return request;
}

void requireEqual(const VintakRequest& one, const VintakRequest& other) {
    const auto sameTag = [](const auto& a, const auto& b) {
        return a.group == b.group && a.element == b.element;
    };
    const auto sameFolders = [](const auto& a, const auto& b) {
        return a.output == b.output && a.cache == b.cache;
    };
    REQUIRE(one.inputFile == other.inputFile && one.outputPrefix == other.outputPrefix &&
            one.cachePrefix == other.cachePrefix && one.files == other.files);
    REQUIRE(one.verbose == other.verbose && one.dumponly == other.dumponly &&
            one.escapeNewLines == other.escapeNewLines && one.needOptimize == other.needOptimize &&
            one.noCached == other.noCached &&
            std::equal(one.folders.begin(), one.folders.end(), other.folders.begin(), other.folders.end(),
                       sameFolders));
    REQUIRE(one.writeMask == other.writeMask && one.specificFrame == other.specificFrame &&
            std::memcmp(&one.streamParameter, &other.streamParameter, sizeof(float)) == 0);
    REQUIRE(one.tagsOnce == other.tagsOnce &&
            std::equal(one.tags.begin(), one.tags.end(), other.tags.begin(), other.tags.end(), sameTag));
}

/// What is recorded for a file is answered, as many values as were asked for.
void checkTable(const VintakRequest& request) {
    TagTable table;
    table.reset(request);
    size_t values = request.tagsOnce;
    values += (request.tags.size() - request.tagsOnce) * request.files.size();
    for (size_t file = 0; file < std::min<size_t>(request.files.size(), 3); ++file) {
        table.rewind();
        for (const VintakRequest::Tag& tag : request.tags)
            table.record(DcmTagKey(tag.group, tag.element), static_cast<int>(file), "v");
    }
    const std::string answer = table.answer();
    REQUIRE(static_cast<size_t>(std::count(answer.begin(), answer.end(), ';')) == values);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::string bytes =
        data[0] % 2 == 0 ? std::string(data + 1, data + size) : expanded({data + 1, size - 1});
    const ipc::Message message = messageOf(bytes);
    isPing(message);
    VintakRequest request;
    try {
        request = parseRequest(message);
    } catch (const VintakdErrorException& error) {
        REQUIRE(!error.text().empty());
        return 0;
    }
    REQUIRE(bytes.size() >= sizeof(vintakd::VintakMsgIn));
    REQUIRE(request.tags.size() <= requestlimits::kTags && request.tagsOnce <= request.tags.size());
    REQUIRE(request.files.size() <= requestlimits::kFiles);
    REQUIRE(request.tags.size() * request.files.size() <= requestlimits::kValues);
    if (request.tags.size() * request.files.size() < 4096) checkTable(request);
    if (request.files.empty()) return 0;  // records that the message does not hold; no bytes say that again
    requireEqual(parseRequest(messageOf(requestBytes(request))), request);
    return 0;
}
