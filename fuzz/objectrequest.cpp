#include "fuzz/objectrequest.h"

#include <stdlib.h>

#include <string_view>

#include "fuzz/inputbytes.h"
#include "fuzz/requestbytes.h"
#include "fuzz/require.h"
#include "vintakd/viewer/conversionfiles.h"

namespace {

constexpr std::string_view kErrorPrefix = "VINTAKD ERROR";

std::span<const uint8_t> bytesOf(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

}  // namespace

ObjectRequest::ObjectRequest(const uint8_t* data, size_t size) {
    InputBytes input(data, size);
    const uint8_t flags = input.byte();
    verbose = flags & 1;
    dumponly = flags & 2;
    escapeNewLines = flags & 4;
    needOptimize = flags & 8;
    noCached = flags & 16;
    includePrivate = flags & 32;
    twice = flags & 64;
    writeMask = input.byte();
    specificFrame = input.number<int16_t>();
    // That would be refused whatever the object is.
    if (specificFrame > 0) writeMask &= ~static_cast<int>(writemask::kPacked);
    const uint8_t counts = input.byte();
    tags.resize(counts % 8);
    tagsOnce = std::min<size_t>(counts / 8, tags.size());
    for (Tag& tag : tags) {
        tag.group = input.number<uint16_t>();
        tag.element = input.number<uint16_t>();
    }
    object = input.rest();
}

ObjectRoad::ObjectRoad() {
    setenv("DOWNLOAD_HOME", (m_configuration / "none").c_str(), 1);
    m_configuration.write("thumbnail.conf", bytesOf("KELT_PERCENT=\"2\"\nKELT_PERCENT_MR=\"100t\"\n"));
    m_configuration.write("include.conf", bytesOf("(0009,0000)\n(0011,1001)\n(0029,1010)\n"));
}

std::string ObjectRoad::run(const ObjectRequest& request) {
    m_output.empty();
    m_cache.empty();
    m_input.write("object.dcm", request.object);
    setenv("CONF", (m_configuration / (request.includePrivate ? "." : "none")).c_str(), 1);

    const bool list = request.fileCount() == 2;
    VintakRequest message = request;
    message.inputFile = list ? m_input / "" : inputPath();
    message.outputPrefix = m_output / (list ? "" : "object.dcm");
    message.cachePrefix = m_cache / (list ? "" : "object.dcm");
    if (list) message.files = {"object.dcm", "object.dcm"};
    return m_servant.serve(requestBytes(message));
}

bool isRefusal(const std::string& answer) {
    return std::string_view(answer).starts_with(kErrorPrefix);
}

void requireReason(const std::string& answer, const ObjectRoad& road) {
    const std::string start = road.inputPath() + ": ";
    const size_t found = answer.find(start);
    // Only the copy is written after the conversion, and its failure names the copy.
    const bool aboutCopy = answer.find("Error writing file: ") != std::string::npos;
    REQUIRE(aboutCopy || found != std::string::npos, "%s", answer.c_str());
    REQUIRE(answer.size() > found + start.size(), "%s", answer.c_str());
}
