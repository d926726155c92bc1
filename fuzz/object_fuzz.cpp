#include "fuzz/require.h"
#include "fuzz/viewerfiles.h"

/// An object on its whole way through a servant, with every option of a request taken from the input: it is
/// refused with a reason that names it, or everything is there that was announced.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ObjectRoad road;
    const ObjectRequest request(data, size);
    const std::string answer = road.run(request);
    if (isRefusal(answer)) {
        requireReason(answer, road);
        return 0;
    }
    REQUIRE(answer.size() >= 7 && answer.ends_with(std::string_view(">>>\0", 4)));
    if (!request.dumponly) requireViewerFiles(request, road);
    return 0;
}
