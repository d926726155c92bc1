#pragma once

#include <cstdint>
#include <string>

/// How many bytes a compressed thumbnail may have: a percentage of the frame's or of the thumbnail's own
/// bytes.
struct ThumbnailBudget {
    double percent = 1.0;
    bool ofThumbnail = false;

    /// From "thumbnail.conf" in `folder` (null: none): the key KELT_PERCENT_ + modality (0008,0060), else
    /// KELT_PERCENT; a number, followed by "t" when it refers to the thumbnail. What is missing or is no
    /// number leaves the default.
    static ThumbnailBudget read(const char* folder, const std::string& modality);

    /// Never more than the thumbnail's own bytes.
    uint64_t bytes(uint64_t frameBytes, uint64_t thumbnailBytes) const;
};
