#include "fuzz/framesinput.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "fuzz/inputbytes.h"

namespace {

E_TransferSyntax syntaxOf(Coding coding, unsigned choice) {
    constexpr std::array kJpeg{EXS_JPEGProcess1, EXS_JPEGProcess2_4, EXS_JPEGProcess14, EXS_JPEGProcess14SV1};
    switch (coding) {
        case Coding::Jpeg:
            return kJpeg[choice % kJpeg.size()];
        case Coding::JpegLs:
            return choice % 2 == 0 ? EXS_JPEGLSLossless : EXS_JPEGLSLossy;
        case Coding::RunLength:
            return EXS_RLELossless;
        case Coding::Jpeg2000:
            return choice % 2 == 0 ? EXS_JPEG2000LosslessOnly : EXS_JPEG2000;
    }
    return EXS_Unknown;
}

/// Only our own encoder: the toolkit's convert what they code.
E_TransferSyntax losslessOf(Coding coding) {
    return coding == Coding::Jpeg2000 ? EXS_JPEG2000LosslessOnly : EXS_Unknown;
}

/// Samples that keep to the stored bits.
std::vector<uint8_t> pixelsFrom(std::span<const uint8_t> bytes, const FramesInput& input) {
    const size_t frame = size_t{input.columns} * input.rows * input.samples * (input.allocated / 8) *
                         static_cast<size_t>(input.frames);
    std::vector<uint8_t> pixels(bytes.begin(), bytes.begin() + std::min(bytes.size(), frame));
    pixels.resize(frame);
    const bool wide = input.allocated == 16;
    for (size_t i = 0; i < frame; i += wide ? 2 : 1) {
        const int cell = wide ? pixels[i] | pixels[i + 1] << 8 : pixels[i];
        int value = static_cast<int>(static_cast<unsigned>(cell) << (32 - input.stored));
        value = input.isSigned != 0 ? value >> (32 - input.stored)
                                    : static_cast<int>(static_cast<unsigned>(value) >> (32 - input.stored));
        pixels[i] = static_cast<uint8_t>(value);
        if (wide) pixels[i + 1] = static_cast<uint8_t>(value >> 8);
    }
    return pixels;
}

}  // namespace

FramesInput::FramesInput(Coding coding, const uint8_t* data, size_t size) {
    constexpr std::array kModels{"MONOCHROME2",  "MONOCHROME1",     "PALETTE COLOR", "RGB",     "YBR_FULL",
                                 "YBR_FULL_422", "YBR_PARTIAL_422", "YBR_ICT",       "YBR_RCT", "HSV"};
    InputBytes input(data, size);
    const uint8_t kind = input.byte();
    coded = kind % 2 == 0;
    syntax = syntaxOf(coding, kind / 2);
    const bool highThroughput = coding == Coding::Jpeg2000 && kind / 4 % 2 != 0;
    if (highThroughput)
        metaSyntax = kind / 2 % 2 == 0 ? "1.2.840.10008.1.2.4.201" : "1.2.840.10008.1.2.4.203";
    roundTrip = losslessOf(coding);
    const uint8_t bits = input.byte();
    allocated = bits % 2 == 0 ? 8 : 16;
    stored = static_cast<uint16_t>(std::max(1, allocated - bits / 16));
    isSigned = bits / 2 % 2;
    planar = bits / 4 % 2;
    const uint8_t model = input.byte();
    photometric = kModels[model % kModels.size()];
    // A colour model has three samples; sometimes the object says otherwise.
    samples = (model % kModels.size() >= 3) != (model >= 200) ? 3 : 1;
    columns = static_cast<uint16_t>(input.byte() + 1);
    rows = static_cast<uint16_t>(input.byte() + 1);
    const uint8_t counts = input.byte();
    frames = 1 + counts % 4;
    if (coded) {
        fragments.emplace_back();
        for (int i = 0; i < counts / 4 % 8; ++i)
            fragments.push_back(input.bytes(input.number<uint16_t>()));
        fragments.push_back(input.rest());
    } else {
        pixels = pixelsFrom(input.rest(), *this);
    }
}
