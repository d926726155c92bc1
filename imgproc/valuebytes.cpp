#include "imgproc/valuebytes.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcelem.h>

std::span<std::uint8_t> valueBytes(DcmElement& element) {
    if (element.ident() == EVR_SQ || element.getLength() == 0) return {};
    Uint8* bytes = nullptr;
    Uint16* words = nullptr;
    Sint16* signedWords = nullptr;
    if (element.getUint8Array(bytes).good() && bytes != nullptr) return {bytes, element.getLength()};
    if (element.getUint16Array(words).good() && words != nullptr)
        return {reinterpret_cast<std::uint8_t*>(words), element.getLength()};
    if (element.getSint16Array(signedWords).good() && signedWords != nullptr)
        return {reinterpret_cast<std::uint8_t*>(signedWords), element.getLength()};
    return {};
}
