#include "bench/keltframes.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctk.h>

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace {

/// Masks the stored bits, moves the smallest value to 0 and counts the bits in use.
void takeGrey(BenchFrame& frame, const Uint16* samples, unsigned bitsStored, bool isSigned) {
    const size_t count = static_cast<size_t>(frame.width) * static_cast<size_t>(frame.height);
    std::vector<int> values(count);
    for (size_t i = 0; i < count; ++i) {
        const int value = samples[i] & ((1 << bitsStored) - 1);
        values[i] = isSigned && value >> (bitsStored - 1) ? value - (1 << bitsStored) : value;
    }
    const auto [least, greatest] = std::minmax_element(values.begin(), values.end());
    frame.bitsUsed = static_cast<int>(std::bit_width(static_cast<unsigned>(*greatest - *least)));
    frame.pixels.resize(2 * count);
    for (size_t i = 0; i < count; ++i) {
        const auto sample = static_cast<uint16_t>(values[i] - *least);
        std::memcpy(&frame.pixels[2 * i], &sample, 2);
    }
}

BenchFrame loadFrame(const std::string& folder, const std::string& name) {
    const std::string path = folder + "/WG04_" + name + "_UNC.dcm";
    DcmFileFormat file;
    if (file.loadFile(path.c_str()).bad()) throw std::runtime_error("cannot read " + path);
    DcmDataset& data = *file.getDataset();
    Uint16 rows = 0, columns = 0, components = 1, bitsStored = 0, representation = 0;
    data.findAndGetUint16(DCM_Rows, rows);
    data.findAndGetUint16(DCM_Columns, columns);
    data.findAndGetUint16(DCM_SamplesPerPixel, components);
    data.findAndGetUint16(DCM_BitsStored, bitsStored);
    data.findAndGetUint16(DCM_PixelRepresentation, representation);

    BenchFrame frame{name, columns, rows, components == 3 ? 3 : 2, 8, {}};
    const size_t bytes = size_t{columns} * rows * static_cast<size_t>(frame.bytesPerPixel);
    unsigned long count = 0;
    if (frame.bytesPerPixel == 3) {
        const Uint8* pixels = nullptr;
        data.findAndGetUint8Array(DCM_PixelData, pixels, &count);
        if (pixels == nullptr || count < bytes) throw std::runtime_error("no pixels in " + path);
        frame.pixels.assign(pixels, pixels + bytes);
    } else {
        const Uint16* samples = nullptr;
        data.findAndGetUint16Array(DCM_PixelData, samples, &count);
        if (samples == nullptr || count < bytes / 2) throw std::runtime_error("no pixels in " + path);
        takeGrey(frame, samples, bitsStored, representation == 1);
    }
    return frame;
}

}  // namespace

std::vector<BenchFrame> loadBenchFrames() {
    const char* const set = std::getenv("VINTAKD_CORPUS");
    const std::string folder = set != nullptr ? set : VINTAKD_CORPUS_DIR;
    std::vector<BenchFrame> frames;
    for (const char* name : {"CT1", "MR1", "MR4", "XA1", "RG3", "US1", "VL1"}) {
        frames.push_back(loadFrame(folder, name));
    }
    return frames;
}
