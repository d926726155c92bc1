#include "codecs/jpeg2000lossyrates.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmimage/diregist.h>  // its static object enables colour images in the toolkit
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "hsutils/Utils.h"

const double JPEG2000LossyRates::factoryDefault = 0.1;

// NOLINTNEXTLINE(cert-err58-cpp): without the memory for one path no program would start
JPEG2000LossyRates g_jpeg2000LossyRates(nullptr);

JPEG2000LossyRates::JPEG2000LossyRates(const char* path) : m_defaultRate(factoryDefault) {
    if (path)
        m_path = path;
    else if (const char* directory = std::getenv("CONF"))
        m_path = std::string(directory) + "/jpeg2000lossy.conf";
}

double JPEG2000LossyRates::getRateForModality(const std::string& modality) {
    checkAndLoadConfigFile();
    const auto found = m_rates.find(modality);
    return found != m_rates.end() ? found->second : m_defaultRate;
}

void JPEG2000LossyRates::reset() {
    m_defaultRate = factoryDefault;
    m_rates.clear();
}

void JPEG2000LossyRates::checkAndLoadConfigFile() {
    if (m_path.empty()) return;
    struct stat status {};
    if (::stat(m_path.c_str(), &status) != 0) {
        if (m_loadedTime != 0) reset();
        m_loadedTime = 0;
        return;
    }
    if (status.st_mtime == m_loadedTime) return;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(m_path.c_str(), "r"), std::fclose);
    if (!file) return;
    reset();
    m_loadedTime = status.st_mtime;
    char line[256];
    while (std::fgets(line, sizeof line, file.get()))
        takeLine(line);
}

void JPEG2000LossyRates::takeLine(const char* line) {
    while (std::isspace(static_cast<unsigned char>(*line)))
        ++line;
    if (*line == '\0' || *line == '#') return;
    char key[256];
    double value = 0;
    // NOLINTNEXTLINE(cert-err34-c): a number out of range is infinite, and refused below
    if (std::sscanf(line, "%255[^=]=\"%lf\"", key, &value) != 2) return;
    if (!(value > 0 && value <= 1)) return;
    m_rates[key] = value;
    if (std::string_view(key) == "Default") m_defaultRate = value;
}

void JPEG2000LossyRates::print() {
    std::printf("========= JPEG2000LossyRates - %s[%lu] ===========\n", m_path.c_str(),
                static_cast<unsigned long>(m_loadedTime));
    std::printf("--------- Default: %lf;        Factory Default: %lf\n", m_defaultRate, factoryDefault);
    if (m_rates.empty()) std::printf("[EMPTY MAP]");
    for (const auto& [modality, rate] : m_rates)
        std::printf("'%s' = '%lf'\n", modality.c_str(), rate);
}

double getJPEG2000LossyCompressionRate(DcmDataset& dataset) {
    OFString modality;
    if (dataset.findAndGetOFString(DCM_Modality, modality).bad()) modality = "Default";
    return g_jpeg2000LossyRates.getRateForModality(unpadded({modality.data(), modality.size()}));
}
