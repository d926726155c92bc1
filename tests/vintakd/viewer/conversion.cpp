#include "tests/vintakd/viewer/conversion.h"

#include <cmath>
#include <cstdlib>
#include <random>
#include <sstream>

#include "vintakd/viewer/vintakrawimage.h"

namespace {

struct FrameCounter : IImageProcessProgress {
    int frames = 0;
    void onImageConverted() override {}
    void onFrameWritten() override { ++frames; }
};

class LookingProcess : public CVintakProcess {
public:
    LookingProcess(DcmDataset& dataset, const TemporaryFolder& folder, const Options& options,
                   const std::function<void(CVintakRawImage&)>& look)
        : CVintakProcess(&dataset, false, options.dumpOnly, false, (folder / "o/x").c_str(),
                         (folder / "c/x").c_str(), options.specificFrame),
          m_look(look) {}

    bool postProcess(CExtractedData* item) override {
        const bool result = CVintakProcess::postProcess(item);
        auto* image = dynamic_cast<CVintakRawImage*>(item);
        if (image && m_look) m_look(*image);
        return result;
    }

private:
    std::function<void(CVintakRawImage&)> m_look;
};

}  // namespace

std::string Outcome::line(int number) const {
    std::istringstream text(files.at("o/x.desc"));
    std::string line;
    for (int i = 0; i < number; ++i)
        std::getline(text, line);
    return line;
}

std::string Outcome::field(int lineNumber, int number) const {
    std::istringstream text(line(lineNumber));
    std::string field;
    for (int i = 0; i < number; ++i)
        std::getline(text, field, ' ');
    return field;
}

ConversionTest::ConversionTest() {
    std::filesystem::create_directories(m_folder / "o");
    std::filesystem::create_directories(m_folder / "c");
    unsetenv("CONF");
    unsetenv("DOWNLOAD_HOME");
}

Outcome ConversionTest::convert(DcmDataset& dataset, const Options& options,
                                const std::function<void(CVintakRawImage&)>& look) {
    Outcome outcome;
    FrameCounter counter;
    {
        LookingProcess process(dataset, m_folder, options, look);
        process.setWriteMask(options.mask);
        process.setNoCached(options.noCached);
        process.setNeedOptimize(options.needOptimize);
        process.setProgressCallback(&counter);
        outcome.result = process.process();
        outcome.cause = process.failureCause();
    }
    outcome.framesWritten = counter.frames;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(m_folder.path())) {
        if (!entry.is_regular_file()) continue;
        const std::string name = std::filesystem::relative(entry.path(), m_folder.path());
        outcome.files[name] = readFile(entry.path());
    }
    return outcome;
}

void FrameFilesTest::makeObject(int columns, int rows, int bytesPerPixel, const Bytes& samples,
                                const char* modality) {
    const Uint16 bits = bytesPerPixel == 2 ? 16 : 8;
    ImageShape shape{.rows = static_cast<Uint16>(rows),
                     .columns = static_cast<Uint16>(columns),
                     .allocated = bits,
                     .stored = bits};
    if (bytesPerPixel == 3) {
        shape.samples = 3;
        shape.photometric = "RGB";
        shape.planar = 0;
    }
    m_object.emplace(shape, samples);
    m_object->text(DCM_Modality, modality);
    m_object->text(DCM_WindowCenter, "40.5");
    m_object->text(DCM_WindowWidth, "300");
    m_object->text(DCM_RescaleIntercept, "-1024");
    m_object->text(DCM_RescaleSlope, "2");
    m_path = m_object->save(EXS_LittleEndianExplicit);
}

bool FrameFilesTest::convert(unsigned mask, const std::function<void(CVintakRawImage&)>& look) {
    DcmFileFormat file;
    EXPECT_TRUE(file.loadFile(m_path.c_str()).good());
    m_outcome = ConversionTest::convert(*file.getDataset(), {.mask = mask}, look);
    return m_outcome.result == 0;
}

Bytes FrameFilesTest::file(const std::string& suffix) const {
    const std::string place = m_outcome.files.contains("o/x_1" + suffix) ? "o/x_1" : "c/x_1";
    const std::string& content = m_outcome.files.at(place + suffix);
    return Bytes(content.begin(), content.end());
}

void FrameFilesTest::configure(const std::string& text) {
    writeFile(m_folder / "thumbnail.conf", text);
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
