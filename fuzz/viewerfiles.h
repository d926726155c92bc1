#pragma once

#include "fuzz/objectrequest.h"

/// Requires that a conversion that was answered left what the request and its descriptor announce: every
/// file, of the size that follows from the frame's line, and streams that decode to the very pixels.
void requireViewerFiles(const ObjectRequest& request, const ObjectRoad& road);
