#pragma once

#include "tests/shared/codestreams.h"

/// How an image is coded with HT code-blocks. Built only where OpenJPH is installed.
struct HtCoding {
    const char* order = "RPCL";  ///< progression order
    unsigned tile = 0;           ///< side of the tiles, 0: one tile
    float quantization = 0;      ///< step of the irreversible wavelet, as part of the range; 0: reversible
};

/// The codestream of each frame of `image`. Colour is transformed.
std::vector<Bytes> htStreamsOf(const TestImage& image, const HtCoding& coding = {});

/// Writes an object with these frames under a High-Throughput JPEG 2000 syntax, which the toolkit has no name
/// for; `object` describes the image already.
std::string saveHtObject(TestObject& object, const std::string& path, const char* syntax,
                         const std::vector<Bytes>& streams);
