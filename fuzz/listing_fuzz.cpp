#include <algorithm>

#include "fuzz/objectrequest.h"
#include "fuzz/require.h"

/// An object that is only listed or asked for values: nothing is written, and the answer has the shape that a
/// client relies on.
namespace {

/// Every line of an escaped dump is an element's, or opens or closes a sequence or an item.
void requireLines(const std::string& dump) {
    for (size_t start = 0, end; start < dump.size(); start = end + 1) {
        end = dump.find('\n', start);
        REQUIRE(end != std::string::npos);
        std::string_view line(dump.data() + start, end - start);
        line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
        const auto isHex = [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); };
        REQUIRE(line.size() >= 15 && line[0] == '(' && line[5] == ',' && line.substr(10, 2) == ") ", "%.*s",
                static_cast<int>(line.size()), line.data());
        REQUIRE(std::all_of(line.begin() + 1, line.begin() + 5, isHex) &&
                std::all_of(line.begin() + 6, line.begin() + 10, isHex));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ObjectRoad road;
    ObjectRequest request(data, size);
    request.dumponly = true;
    const std::string answer = road.run(request);
    // At most the copy is written, and only of what could be listed.
    REQUIRE(road.cache().sizes().empty());
    REQUIRE(road.output().sizes().size() <= (road.output().has("object.dcm.pdcm") ? 1 : 0));
    if (isRefusal(answer)) {
        requireReason(answer, road);
        return 0;
    }
    REQUIRE(answer.size() >= 7 && answer.ends_with(std::string_view(">>>\0", 4)));
    const std::string body = answer.substr(0, answer.rfind("<<<"));
    if (request.tags.empty()) {
        if (request.escapeNewLines) requireLines(body);
    } else {
        const size_t values =
            request.tagsOnce + (request.tags.size() - request.tagsOnce) * request.fileCount();
        REQUIRE(static_cast<size_t>(std::count(body.begin(), body.end(), ';')) >= values);
    }
    return 0;
}
