#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/ofstd/oftypes.h>

#include <cstdint>

/// Settings that hold for every object that the JPEG 2000 encoders write.
struct O2EncoderSettings {
    uint32_t fragmentSize = 0;      ///< largest fragment in kilobytes, 0: one fragment per frame
    bool createOffsetTable = true;  ///< fill the basic offset table
    bool newInstanceUID =
        false;  ///< lossy: give the object a new SOP Instance UID that refers to the old one
};

/// Registers the JPEG 2000 decoder with the toolkit; a second registration changes nothing.
class O2DecoderRegistration {
public:
    static void registerCodecs();
    static void cleanup();
};

/// Registers the JPEG 2000 encoders with the toolkit; a second registration changes nothing.
class O2EncoderRegistration {
public:
    static void registerCodecs(const O2EncoderSettings& settings = {});
    static void cleanup();
};
