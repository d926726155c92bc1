#pragma once

#include <functional>
#include <span>
#include <string>

#include "tools/view/viewedobject.h"

namespace view {

/// Makes `folder` (new, or empty) a site that any web server can serve: the page's files, the results of the
/// objects under results/i/o..., without .raw, which the page does not need, and last objects.json. Throws
/// std::runtime_error, also once `stops` says so; nothing of the site stays then.
void exportSite(const std::string& pageFolder, std::span<const ViewedObject> objects,
                const std::string& folder, const std::function<bool()>& stops);

}  // namespace view
