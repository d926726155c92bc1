#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <utime.h>

#include "codecs/codecregistry.h"
#include "tests/shared/testing.h"

namespace {

class LossyRates : public testing::Test {
protected:
    /// Writes the file with a time stamp that it did not have before.
    void write(const std::string& text) {
        writeFile(m_path, text);
        stamp(++m_time);
    }
    void stamp(time_t time) {
        const utimbuf times{time, time};
        utime(m_path.c_str(), &times);
    }

    const TemporaryFolder m_temporary;
    const std::string m_directory = m_temporary.path();
    const std::string m_path = m_temporary / "jpeg2000lossy.conf";
    time_t m_time = 1000000000;
};

TEST_F(LossyRates, WithoutAFileIsTheFactoryDefault) {
    unsetenv("CONF");
    JPEG2000LossyRates none(nullptr);
    EXPECT_EQ(none.getRateForModality("MR"), 0.1);
    EXPECT_EQ(JPEG2000LossyRates(m_path.c_str()).getRateForModality("MR"), 0.1);
    write("MR=\"0.5\"\n");
    setenv("CONF", m_directory.c_str(), 1);
    JPEG2000LossyRates fromEnvironment(nullptr);
    unsetenv("CONF");
    EXPECT_EQ(fromEnvironment.getRateForModality("MR"), 0.5);
}

TEST_F(LossyRates, ReadsEntriesAndLeavesOutTheRest) {
    write(
        "# a comment\n"
        "   # XA=\"0.9\"\n"
        "\n"
        " \t MR=\"0.25\"\n"
        "CT=\"0.3\"\n"
        "CT=\"0.4\" trailing text\n"
        "US = \"0.6\"\n"
        "NM=\"0\"\n"
        "PT=\"1.5\"\n"
        "DX=\"-0.5\"\n"
        "CR=0.7\n"
        "MG=\"1\"\n"
        "XC=\"nan\"\n"
        "Default=\"0.5\"");
    JPEG2000LossyRates rates(m_path.c_str());
    const std::pair<const char*, double> expected[] = {
        {"MR", 0.25}, {"CT", 0.4}, {"US", 0.5}, {"NM", 0.5}, {"PT", 0.5}, {"DX", 0.5},
        {"CR", 0.5},  {"MG", 1.0}, {"XA", 0.5}, {"XC", 0.5}, {"mr", 0.5}, {"Default", 0.5}};
    for (const auto& [modality, rate] : expected)
        EXPECT_EQ(rates.getRateForModality(modality), rate) << modality;
}

TEST_F(LossyRates, FollowsTheFile) {
    write("MR=\"0.25\"\nDefault=\"0.5\"\n");
    JPEG2000LossyRates rates(m_path.c_str());
    EXPECT_EQ(rates.getRateForModality("MR"), 0.25);
    writeFile(m_path, "CT=\"0.75\"\n");
    stamp(m_time);
    EXPECT_EQ(rates.getRateForModality("MR"), 0.25) << "the same time stamp is no reason to read again";
    stamp(++m_time);
    EXPECT_EQ(rates.getRateForModality("CT"), 0.75);
    EXPECT_EQ(rates.getRateForModality("MR"), 0.1) << "what the new file lacks is forgotten";
    std::filesystem::remove(m_path);
    EXPECT_EQ(rates.getRateForModality("CT"), 0.1);
    write("CT=\"0.2\"\n");
    EXPECT_EQ(rates.getRateForModality("CT"), 0.2);
}

TEST_F(LossyRates, DecideTheParameterOfAnObject) {
    write("MG=\"1\"\nMR=\"0.25\"\nDefault=\"0.5\"\n");
    g_jpeg2000LossyRates = JPEG2000LossyRates(m_path.c_str());
    const auto parameterFor = [](const char* modality) {
        DcmDataset dataset;
        if (modality) dataset.putAndInsertString(DCM_Modality, modality);
        const std::unique_ptr<DcmRepresentationParameter> parameter(
            CodecRegistry::getRepresentationParameter(dataset, EXS_JPEG2000));
        return dynamic_cast<D2RepresentationParameter&>(*parameter);
    };
    EXPECT_EQ(parameterFor("MR").compressionRate(), 0.25);
    EXPECT_FALSE(parameterFor("MR").lossless());
    EXPECT_EQ(parameterFor("CT").compressionRate(), 0.5);
    EXPECT_EQ(parameterFor(nullptr).compressionRate(), 0.5);
    EXPECT_TRUE(parameterFor("MG").lossless());
    g_jpeg2000LossyRates = JPEG2000LossyRates(nullptr);
}

}  // namespace
