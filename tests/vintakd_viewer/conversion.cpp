#include "conversion.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

struct FrameCounter : IImageProcessProgress {
    int frames = 0;
    void onImageConverted() override {}
    void onFrameWritten() override { ++frames; }
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
    std::string pattern = (std::filesystem::temp_directory_path() / "viewer.XXXXXX").string();
    m_folder = mkdtemp(pattern.data());
    std::filesystem::create_directories(m_folder / "o");
    std::filesystem::create_directories(m_folder / "c");
    unsetenv("CONF");
    unsetenv("DOWNLOAD_HOME");
}

ConversionTest::~ConversionTest() {
    std::filesystem::remove_all(m_folder);
}

Outcome ConversionTest::convert(DcmDataset& dataset, const Options& options) {
    Outcome outcome;
    FrameCounter counter;
    {
        CVintakProcess process(&dataset, false, options.dumpOnly, false, (m_folder / "o/x").c_str(),
                               (m_folder / "c/x").c_str(), options.specificFrame);
        process.setWriteMask(options.mask);
        process.setNoCached(options.noCached);
        process.setNeedOptimize(options.needOptimize);
        process.setProgressCallback(&counter);
        outcome.result = process.process();
        outcome.cause = process.failureCause();
    }
    outcome.framesWritten = counter.frames;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(m_folder)) {
        if (!entry.is_regular_file()) continue;
        std::ifstream in(entry.path(), std::ios::binary);
        outcome.files[std::filesystem::relative(entry.path(), m_folder).string()] =
            std::string(std::istreambuf_iterator<char>(in), {});
    }
    return outcome;
}
