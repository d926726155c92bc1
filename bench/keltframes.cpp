#include "bench/keltframes.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctk.h>

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

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

BenchFrame loadFrame(const std::string& path, const std::string& name) {
    DcmFileFormat file;
    if (file.loadFile(path.c_str()).bad()) throw std::runtime_error("cannot read " + path);
    DcmDataset& data = *file.getDataset();
    Uint16 rows = 0, columns = 0, components = 1, bitsAllocated = 0, bitsStored = 0, representation = 0;
    data.findAndGetUint16(DCM_Rows, rows);
    data.findAndGetUint16(DCM_Columns, columns);
    data.findAndGetUint16(DCM_SamplesPerPixel, components);
    data.findAndGetUint16(DCM_BitsAllocated, bitsAllocated);
    data.findAndGetUint16(DCM_BitsStored, bitsStored);
    data.findAndGetUint16(DCM_PixelRepresentation, representation);

    BenchFrame frame{name, columns, rows, components == 3 ? 3 : bitsAllocated / 8, 8, {}};
    const size_t bytes = size_t{columns} * rows * static_cast<size_t>(frame.bytesPerPixel);
    unsigned long count = 0;
    if (frame.bytesPerPixel != 2) {
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

/// One object of each kind that the corpus has uncompressed.
constexpr std::pair<const char*, const char*> kObjects[] = {
    {"CT1", "WG04_CT1_UNC"},
    {"MR1", "WG04_MR1_UNC"},
    {"MR4", "WG04_MR4_UNC"},
    {"NM1", "WG04_NM1_UNC"},
    {"XA1", "WG04_XA1_UNC"},
    {"RG3", "WG04_RG3_UNC"},
    {"US1", "WG04_US1_UNC"},
    {"VL1", "WG04_VL1_UNC"},
    {"eCT", "eCT_Supplemental"},
    {"eMR", "emri_small"},
    {"MR8", "MR-SIEMENS-DICOM-WithOverlays"},
    {"palette8", "OBXXXX1A_2frame"},
    {"palette16", "gdcm-US-ALOKA-16"},
    {"colour", "color-px"},
    {"grey8", "vlut_04"},
    {"signed12", "mlut_18"},
};

}  // namespace

std::vector<BenchFrame> loadBenchFrames() {
    const char* const set = std::getenv("VINTAKD_CORPUS");
    const std::string folder = set != nullptr ? set : VINTAKD_CORPUS_DIR;
    std::vector<BenchFrame> frames;
    for (const auto& [name, object] : kObjects)
        frames.push_back(loadFrame(folder + "/" + object + ".dcm", name));
    return frames;
}
