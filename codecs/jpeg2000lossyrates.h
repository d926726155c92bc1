#pragma once

#include <cstdint>
#include <map>
#include <string>

class DcmDataset;

/// The compression rates of lossy JPEG 2000 for each modality, from the file "jpeg2000lossy.conf". The file
/// is read at the first look-up and again when its time stamp changes; without it every modality has the
/// factory default. One entry a line, KEY="VALUE": the key is a Modality (0008,0060) or "Default", the value
/// a rate in (0, 1]. One thread.
class JPEG2000LossyRates {
public:
    static const double factoryDefault;

    /// `path`: the file; null: "jpeg2000lossy.conf" in the directory that the environment variable "CONF"
    /// names, or no file when there is no such variable. Nothing is read yet.
    explicit JPEG2000LossyRates(const char* path);

    /// The rate of a modality: compressed size over original size.
    double getRateForModality(const std::string& modality);

    /// Reads the file when it changed since it was read, forgets it when it is gone.
    void checkAndLoadConfigFile();

    /// Lists the rates on standard output.
    void print();

private:
    void reset();
    void takeLine(const char* line);

    double m_defaultRate;
    std::string m_path;
    int64_t m_loadedTime =
        0;  ///< modification time of the file that was read, in seconds; 0: nothing was read
    std::map<std::string, double> m_rates;
};

extern JPEG2000LossyRates g_jpeg2000LossyRates;

/// The rate for the dataset's Modality (0008,0060), of the key "Default" when it has none.
double getJPEG2000LossyCompressionRate(DcmDataset& dataset);
