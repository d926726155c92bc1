#include "tests/vintakd/viewer/conversion.h"

#include <cstdlib>
#include <fstream>
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
                   const std::function<void(CVintakRawImage&)>& look, Outcome& outcome)
        : CVintakProcess(&dataset, false, options.dumpOnly, false, (folder / "o/x").c_str(),
                         (folder / "c/x").c_str(), options.specificFrame),
          m_look(look),
          m_outcome(outcome) {}

    bool postProcess(CExtractedData* item) override {
        const bool result = CVintakProcess::postProcess(item);
        auto* image = dynamic_cast<CVintakRawImage*>(item);
        if (image) ++m_outcome.framesSeen;
        if (image && m_look) m_look(*image);
        return result;
    }

private:
    std::function<void(CVintakRawImage&)> m_look;
    Outcome& m_outcome;
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
        LookingProcess process(dataset, m_folder, options, look, outcome);
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
        std::ifstream in(entry.path(), std::ios::binary);
        outcome.files[std::filesystem::relative(entry.path(), m_folder.path()).string()] =
            std::string(std::istreambuf_iterator<char>(in), {});
    }
    return outcome;
}
