#pragma once

#include "codecs/d2jpeg2000.h"

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
