#include "framefiles.h"

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <random>

#include "vintakd/vintakprocess.h"
#include "vintakd/vintakrawimage.h"

namespace {

class LookingProcess : public CVintakProcess {
public:
    LookingProcess(DcmDataset* dataset, const std::string& prefix,
                   const std::function<void(CVintakRawImage&)>& look)
        : CVintakProcess(dataset, false, false, false, prefix.c_str(), nullptr, 0), m_look(look) {}

    bool postProcess(CExtractedData* item) override {
        const bool result = CVintakProcess::postProcess(item);
        if (auto* image = dynamic_cast<CVintakRawImage*>(item); image) m_look(*image);
        return result;
    }

private:
    std::function<void(CVintakRawImage&)> m_look;
};

}  // namespace

FrameFilesTest::FrameFilesTest() {
    std::string pattern = (std::filesystem::temp_directory_path() / "framefiles.XXXXXX").string();
    m_folder = mkdtemp(pattern.data());
    unsetenv("CONF");
    unsetenv("DOWNLOAD_HOME");
}

FrameFilesTest::~FrameFilesTest() {
    std::filesystem::remove_all(m_folder);
}

void FrameFilesTest::makeObject(int columns, int rows, int bytesPerPixel, const Bytes& samples,
                                const char* modality) {
    m_object.clear();
    DcmDataset& dataset = *m_object.getDataset();
    const Uint16 bits = bytesPerPixel == 2 ? 16 : 8;
    dataset.putAndInsertString(DCM_SOPClassUID, UID_SecondaryCaptureImageStorage);
    dataset.putAndInsertString(DCM_Modality, modality);
    dataset.putAndInsertUint16(DCM_SamplesPerPixel, bytesPerPixel == 3 ? 3 : 1);
    dataset.putAndInsertString(DCM_PhotometricInterpretation, bytesPerPixel == 3 ? "RGB" : "MONOCHROME2");
    if (bytesPerPixel == 3) dataset.putAndInsertUint16(DCM_PlanarConfiguration, 0);
    dataset.putAndInsertUint16(DCM_Rows, static_cast<Uint16>(rows));
    dataset.putAndInsertUint16(DCM_Columns, static_cast<Uint16>(columns));
    dataset.putAndInsertUint16(DCM_BitsAllocated, bits);
    dataset.putAndInsertUint16(DCM_BitsStored, bits);
    dataset.putAndInsertUint16(DCM_HighBit, bits - 1);
    dataset.putAndInsertUint16(DCM_PixelRepresentation, 0);
    dataset.putAndInsertString(DCM_WindowCenter, "40.5");
    dataset.putAndInsertString(DCM_WindowWidth, "300");
    dataset.putAndInsertString(DCM_RescaleIntercept, "-1024");
    dataset.putAndInsertString(DCM_RescaleSlope, "2");
    Bytes padded = samples;
    padded.resize((samples.size() + 1) / 2 * 2);
    if (bits == 16)
        dataset.putAndInsertUint16Array(DCM_PixelData, reinterpret_cast<const Uint16*>(padded.data()),
                                        padded.size() / 2);
    else
        dataset.putAndInsertUint8Array(DCM_PixelData, padded.data(), padded.size());
    ASSERT_TRUE(m_object.saveFile((m_folder / "object.dcm").c_str(), EXS_LittleEndianExplicit).good());
}

bool FrameFilesTest::convert(unsigned mask, bool noCached, DcmDataset* dataset,
                             const std::function<void(CVintakRawImage&)>& look) {
    // A conversion takes the pixel data out of the object.
    if (!dataset) {
        m_object.clear();
        EXPECT_TRUE(m_object.loadFile((m_folder / "object.dcm").c_str()).good());
        dataset = m_object.getDataset();
    }
    int frames = 0;
    LookingProcess process(dataset, m_folder / "x", [&](CVintakRawImage& image) {
        ++frames;
        if (look) look(image);
    });
    process.setWriteMask(mask);
    process.setNoCached(noCached);
    const bool done = process.process() == 0;
    EXPECT_GT(frames, 0);
    return done;
}

Bytes FrameFilesTest::file(const std::string& suffix) const {
    std::ifstream in(m_folder / ("x_1" + suffix), std::ios::binary);
    EXPECT_TRUE(in) << suffix;
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

bool FrameFilesTest::exists(const std::string& suffix) const {
    return std::filesystem::exists(m_folder / ("x_1" + suffix));
}

void FrameFilesTest::configure(const std::string& text) {
    std::ofstream(m_folder / "thumbnail.conf") << text;
    setenv("CONF", m_folder.c_str(), 1);
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
                samples.push_back(static_cast<std::uint8_t>(sample));
                if (bytesPerPixel == 2) samples.push_back(static_cast<std::uint8_t>(sample >> 8));
            }
    return samples;
}
