#include "tests/vintakd/viewer/framefiles.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <random>

void FrameFilesTest::makeObject(int columns, int rows, int bytesPerPixel, const Bytes& samples,
                                const char* modality) {
    const Uint16 bits = bytesPerPixel == 2 ? 16 : 8;
    m_shape = {.rows = static_cast<Uint16>(rows),
               .columns = static_cast<Uint16>(columns),
               .allocated = bits,
               .stored = bits,
               .highBit = static_cast<Uint16>(bits - 1)};
    if (bytesPerPixel == 3) {
        m_shape.samples = 3;
        m_shape.photometric = "RGB";
    }
    m_samples = samples;
    m_modality = modality;
}

bool FrameFilesTest::convert(unsigned mask, bool noCached, DcmDataset* dataset,
                             const std::function<void(CVintakRawImage&)>& look) {
    std::optional<TestObject> object;
    if (!dataset) {
        object.emplace(m_shape, m_samples);
        if (m_shape.samples == 3) object->words(0x0028, 0x0006, EVR_US, {0});
        object->text(DCM_Modality, m_modality.c_str());
        object->text(DCM_WindowCenter, "40.5");
        object->text(DCM_WindowWidth, "300");
        object->text(DCM_RescaleIntercept, "-1024");
        object->text(DCM_RescaleSlope, "2");
        dataset = &object->reload();
    }
    m_outcome = ConversionTest::convert(*dataset, {.mask = mask, .noCached = noCached}, look);
    EXPECT_GT(m_outcome.framesSeen, 0);
    return m_outcome.result == 0;
}

std::string FrameFilesTest::place(const std::string& suffix) const {
    return (m_outcome.files.contains("o/x_1" + suffix) ? "o/x_1" : "c/x_1") + suffix;
}

Bytes FrameFilesTest::file(const std::string& suffix) const {
    const std::string& content = m_outcome.files.at(place(suffix));
    return Bytes(content.begin(), content.end());
}

void FrameFilesTest::configure(const std::string& text) {
    std::ofstream(m_folder / "thumbnail.conf") << text;
    setenv("CONF", m_folder.path().c_str(), 1);
}

Bytes softPicture(int columns, int rows, int bytesPerPixel, int bits) {
    std::mt19937 random(1);
    const double largest = (1 << bits) - 1;
    Bytes samples;
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < columns; ++x)
            for (int c = 0; c < (bytesPerPixel == 3 ? 3 : 1); ++c) {
                const double wave = std::sin(x * 0.05 + c) * std::cos(y * 0.04);
                double value =
                    (0.5 + 0.45 * wave + 0.02 * static_cast<double>(random() % 100) / 100) * largest;
                if (x == 0 && y == 0) value = 0;
                if (x == columns - 1 && y == rows - 1) value = largest;
                const int sample = static_cast<int>(value);
                samples.push_back(static_cast<uint8_t>(sample));
                if (bytesPerPixel == 2) samples.push_back(static_cast<uint8_t>(sample >> 8));
            }
    return samples;
}
