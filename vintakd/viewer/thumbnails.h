#pragma once

#include <cstdio>
#include <string>

#include "vintakd/viewer/framepixels.h"
#include "vintakd/viewer/outputquota.h"

/// Renders a frame's thumbnail, 128 x 128 at most but for flat frames, and writes its pixels to `pixels` (may
/// be null) and its compressed form, within the budget that "CONF" sets for the modality (0008,0060), to
/// `compressed`; the bytes are taken from `quota` before. False when it cannot be rendered (`cause` then says
/// why) or not all bytes were taken.
bool writeThumbnail(const FramePixels& frame, const std::string& modality, std::FILE* pixels,
                    std::FILE* compressed, OutputQuota& quota, std::string& cause);
