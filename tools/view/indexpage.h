#pragma once

#include <span>
#include <string>

#include "tools/view/viewedobject.h"

namespace view {

/// The folder's index.html, which carries what the first picture needs, so that it waits for no further
/// answer: the list, and of the first object with images the descriptor and the preview of its middle frame,
/// in base64. Of those the ones that are long (a list of many objects, a descriptor of many frames) are named
/// instead, for the browser to fetch at once; of a pack, which is read by ranges, there is only the list.
std::string indexPage(const std::string& pageFolder, std::span<const ViewedObject> objects);

}  // namespace view
