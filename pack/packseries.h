#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "pack/PackWriter.h"
#include "pack/layout.h"

namespace pack {

struct PackedSeries {
    uint64_t frames = 0;
    uint64_t objects = 0;
    uint64_t bytes = 0;  ///< of the data
    Order order = Order::asGiven;
};

/// Whether there is a pack below a prefix that is of the same conversion as the descriptor there, or of a
/// later one: what was written before in the other form is not removed, and may be another object's.
bool isPackLatest(const std::string& prefix);

/// Packs converted objects into one set named prefix + suffix. A word is the descriptor of one (X.desc), or
/// its index when it was converted packed (X.index; X.desc with an X.index of the same conversion beside it
/// is taken for that). `byGeometry`: objects are put in the order of their first frames along the normal of
/// the image plane, where all of them have the same; otherwise they stay as they are given. Memory grows with
/// the words alone. Throws PackError, also once `stops` says so, which is asked all the time; there is no
/// pack then.
PackedSeries packSeries(const std::string& prefix, const std::vector<std::string>& words, bool byGeometry,
                        Durability durability = Durability::ofProcess,
                        const std::function<bool()>& stops = {});

}  // namespace pack
