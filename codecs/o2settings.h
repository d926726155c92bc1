#pragma once

#include <cstdint>

/// Settings that hold for every object that the JPEG 2000 encoders write.
struct O2EncoderSettings {
    uint32_t fragmentSize = 0;      ///< largest fragment in kilobytes, 0: one fragment per frame
    bool createOffsetTable = true;  ///< fill the basic offset table
    bool newInstanceUID =
        false;  ///< lossy: give the object a new SOP Instance UID that refers to the old one
};
