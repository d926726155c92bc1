#include <dcmtk/config/osconfig.h>
#include <stdlib.h>
#include <utime.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "codecs/jpeg2000lossyrates.h"
#include "fuzz/inputbytes.h"
#include "fuzz/memoryfolder.h"
#include "fuzz/require.h"
#include "hsutils/HSProperties.h"
#include "vintakd/viewer/includelist.h"
#include "vintakd/viewer/thumbnailbudget.h"

/// The configuration files. The first byte chooses whose the rest is.
namespace {

const MemoryFolder& folder() {
    static MemoryFolder made;
    return made;
}

/// Properties that were written and read again are the same: names keep what stands before their first "=",
/// values lose quotes and outer white space the first time only.
void properties(InputBytes input) {
    const std::string path = folder().write("a", input.rest());
    HSProperties first;
    REQUIRE(first.load(path.c_str()));
    const std::string copy = folder() / "b";
    REQUIRE(first.write(copy.c_str()));
    HSProperties second;
    REQUIRE(second.load(copy.c_str()));
    REQUIRE(first.size() == second.size());
    const std::string third = folder() / "c";
    REQUIRE(second.write(third.c_str()));
    REQUIRE(folder().read("b") == folder().read("c"));
}

void includeList(InputBytes input) {
    IncludeList list;
    list.read(folder().write("a", input.rest()).c_str());
    const auto& tags = list.tags();
    REQUIRE(std::is_sorted(tags.begin(), tags.end(), [](const auto& a, const auto& b) { return a < b; }));
    for (const DcmTagKey& tag : tags)
        REQUIRE(list.includes(tag));
    const size_t before = tags.size();
    list.read((folder() / "a").c_str());
    REQUIRE(list.tags().size() == 2 * before);
    for (const DcmTagKey& tag : tags)
        REQUIRE(list.includes(tag));
}

void thumbnailBudget(InputBytes input) {
    const uint64_t frame = input.number<uint64_t>(), thumbnail = input.number<uint32_t>();
    folder().write("thumbnail.conf", input.rest());
    for (const char* modality : {"CT", "", "=", "MR\\CT"}) {
        const ThumbnailBudget budget = ThumbnailBudget::read((folder() / "").c_str(), modality);
        REQUIRE(budget.bytes(frame, thumbnail) <= thumbnail);
        REQUIRE(budget.bytes(0, 0) == 0);
    }
}

void rates(InputBytes input) {
    JPEG2000LossyRates table(folder().write("a", input.rest()).c_str());
    for (const char* modality : {"CT", "Default", "", "nothing has this name"}) {
        const double rate = table.getRateForModality(modality);
        REQUIRE(rate > 0 && rate <= 1);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    InputBytes input(data, size);
    switch (input.byte() % 4) {
        case 0:
            properties(input);
            break;
        case 1:
            includeList(input);
            break;
        case 2:
            thumbnailBudget(input);
            break;
        default:
            rates(input);
            break;
    }
    return 0;
}
