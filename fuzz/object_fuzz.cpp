#include "fuzz/require.h"
#include "fuzz/viewerfiles.h"
#include "pack/unpack.h"
#include "vintakd/viewer/conversionfiles.h"

namespace {

/// Of a pack the files that would have been written without it, which are looked for in both folders.
void unpackFiles(const ObjectRequest& request, const ObjectRoad& road) {
    const auto mask = static_cast<uint32_t>(request.writeMask);
    if ((mask & writemask::kPacked) == 0 || (mask & ~writemask::kKnown) != 0) return;
    if (!road.output().has("object.dcm.index")) return;
    pack::unpack(road.output() / "object.dcm.index", road.cache() / "");
    pack::unpack(road.output() / "object.dcm.index", road.output() / "");
}

}  // namespace

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
    if (request.dumponly) return 0;
    unpackFiles(request, road);
    requireViewerFiles(request, road);
    return 0;
}
