#include <algorithm>

#include "tests/shared/testing.h"
#include "vintakd/config/configcheck.h"

namespace {

class ConfigTest : public testing::Test {
protected:
    Configuration check() const { return checkConfiguration(m_folder.path().c_str(), m_home.path().c_str()); }
    void write(const std::string& name, const std::string& text) const {
        writeFile((name == "privtags.cfg" ? m_home : m_folder) / name, text);
    }
    /// "VALUE from SOURCE" of a setting, the source without its folder; "" for one that does not hold.
    static std::string held(const Configuration& found, const std::string& file, const std::string& name) {
        for (const ConfigValue& value : found.report.values) {
            const size_t slash = value.source.rfind('/');
            if (value.file == file && value.name == name)
                return value.value + " from " +
                       value.source.substr(slash == std::string::npos ? 0 : slash + 1);
        }
        return "";
    }

    TemporaryFolder m_folder, m_home;
};

}  // namespace

TEST_F(ConfigTest, WhatHoldsIsToldWithItsSource) {
    const Configuration defaults = check();
    EXPECT_TRUE(defaults.report.problems.empty() && defaults.report.notes.empty());
    EXPECT_EQ(defaults.limits.deadlineSeconds, LimitValues().deadlineSeconds);
    EXPECT_EQ(held(defaults, "limits.conf", "ADDRESS_SPACE_MB"), "8192 from default");
    EXPECT_EQ(held(defaults, "log.conf", "LOG_FORMAT"), "text from default");
    EXPECT_FALSE(defaults.logIsJson);

    write(
        "limits.conf",
        "# a comment\nADDRESS_SPACE_MB = 512\nDEADLINE_SECONDS=\"9\"\nDEADLINE_SECONDS = 7\r\nCPU_SECONDS=0\n"
        "SYSTEM_CALL_FILTER = off");
    write("log.conf", "LOG_FORMAT = json\n");
    write("thumbnail.conf", "KELT_PERCENT = -2.5\n\n  KELT_PERCENT_MR = \"5t\"\n");
    write("jpeg2000lossy.conf", "  MR=\"0.25\"\nDefault=\"1\"\n");
    write("include.conf", "# ours\n(0029,1010) a header\n\n(0029,0000)\n");
    write("privtags.cfg", "(0019,10aB)\n");
    const Configuration found = check();
    EXPECT_EQ(found.report.problems, std::vector<std::string>{});
    EXPECT_EQ(found.limits.addressSpaceBytes, uint64_t{512} << 20);
    EXPECT_EQ(found.limits.deadlineSeconds, 7U) << "the last one counts";
    EXPECT_EQ(found.limits.cpuSeconds, 0U);
    EXPECT_EQ(found.limits.descriptors, LimitValues().descriptors);
    EXPECT_FALSE(found.limits.systemCallFilter);
    EXPECT_TRUE(found.logIsJson);
    const struct {
        const char *file, *name, *held;
    } expected[] = {{"limits.conf", "ADDRESS_SPACE_MB", "512 from limits.conf:2"},
                    {"limits.conf", "DEADLINE_SECONDS", "7 from limits.conf:4"},
                    {"limits.conf", "SYSTEM_CALL_FILTER", "off from limits.conf:6"},
                    {"limits.conf", "DESCRIPTORS", "64 from default"},
                    {"log.conf", "LOG_FORMAT", "json from log.conf:1"},
                    {"thumbnail.conf", "KELT_PERCENT", "-2.5 from thumbnail.conf:1"},
                    {"thumbnail.conf", "KELT_PERCENT_MR", "5t from thumbnail.conf:3"},
                    {"jpeg2000lossy.conf", "MR", "0.25 from jpeg2000lossy.conf:1"},
                    {"jpeg2000lossy.conf", "Default", "1 from jpeg2000lossy.conf:2"},
                    {"include.conf", "(0029,1010)", "kept from include.conf:2"},
                    {"include.conf", "(0029,0000)", "the group is kept from include.conf:4"},
                    {"privtags.cfg", "(0019,10aB)", "kept from privtags.cfg:1"}};
    for (const auto& [file, name, value] : expected)
        EXPECT_EQ(held(found, file, name), value) << file << " " << name;
}

TEST_F(ConfigTest, WhatMakesNoSenseIsAProblemWithItsPlaceAndItsCause) {
    const struct {
        const char *file, *line, *cause;
    } cases[] = {
        {"limits.conf", "DESCRIPTORS = 15", "a whole number from 16"},
        {"limits.conf", "CPU_SECONDS = -1", "a whole number"},
        {"limits.conf", "CPU_SECONDS = 1s", "a whole number"},
        {"limits.conf", "FILE_SIZE_MB =", "a whole number"},
        {"limits.conf", "ADDRESS_SPACE_MB = 99999999999999999999", "a whole number"},
        {"limits.conf", "SYSTEM_CALL_FILTER = maybe", "on or off is needed"},
        {"limits.conf", "DEADLNE_SECONDS = 5", "there is no such entry; the nearest is DEADLINE_SECONDS"},
        {"limits.conf", "SYSTEM_CALL_FILTR = off", "the nearest is SYSTEM_CALL_FILTER"},
        {"limits.conf", "descriptors = 32", "the nearest is DESCRIPTORS"},
        {"limits.conf", "DEADLINE_SECONDS 5", "an entry is written NAME = VALUE"},
        {"limits.conf", "= DEADLINE_SECONDS", "an entry is written NAME = VALUE"},
        {"log.conf", "LOG_FORMAT = xml", "text or json is needed"},
        {"log.conf", "LOGFORMAT = json", "the nearest is LOG_FORMAT"},
        {"thumbnail.conf", "KELT_PERCENT = 5 t", "a number is needed"},
        {"thumbnail.conf", "KELT_PERCENT_MR = much", "a number is needed"},
        {"thumbnail.conf", "KELT_PERCNT = 5", "the nearest is KELT_PERCENT"},
        {"thumbnail.conf", "KELT_PERCNT_CT = 5", "the nearest is KELT_PERCENT_CT"},
        {"jpeg2000lossy.conf", "MR = \"0.5\"", "without blanks around the ="},
        {"jpeg2000lossy.conf", "MR=0.5", "an entry is written KEY=\"VALUE\""},
        {"jpeg2000lossy.conf", "MR=\"1.5\"", "a number above 0, at most 1"},
        {"jpeg2000lossy.conf", "default=\"0.5\"", "the nearest is Default"},
        {"include.conf", "0029,1010", "a tag is written (gggg,eeee)"},
        {"include.conf", "(29,1010)", "a tag is written (gggg,eeee)"},
        {"privtags.cfg", "(0029,1010", "a tag is written (gggg,eeee)"},
    };
    for (const auto& [file, line, cause] : cases) {
        write(file, std::string("  # first\n\n") + line + "\n");
        const std::vector<std::string> problems = check().report.problems;
        ASSERT_EQ(problems.size(), 1U) << line << testing::PrintToString(problems);
        const std::string place = (std::string(file) == "privtags.cfg" ? m_home : m_folder) / file;
        EXPECT_EQ(problems[0].find(place + ":3: " + line + ": "), 0U) << problems[0];
        EXPECT_TRUE(contains(problems[0], cause));
        write(file, "");
    }
    write("include.conf", "# " + std::string(254, 'x'));
    std::filesystem::remove(m_folder / "log.conf");
    std::filesystem::create_directory(m_folder / "log.conf");
    const std::vector<std::string> problems = check().report.problems;
    ASSERT_EQ(problems.size(), 2U);
    EXPECT_EQ(problems[0], (m_folder / "log.conf") + ": Is a directory");
    EXPECT_TRUE(contains(problems[1], "a line has 253 bytes at most"));
}

TEST_F(ConfigTest, WhatOneMayNotExpectIsSaid) {
    write("limit.conf", "CPU_SECONDS = 5\n");
    write("include.conf", "(0028,0010)\n");
    const std::vector<std::string> notes = check().report.notes;
    ASSERT_EQ(notes.size(), 2U);
    EXPECT_EQ(notes[0], (m_folder / "limit.conf is not read; the nearest file that is: limits.conf"));
    EXPECT_TRUE(contains(notes[1], "include.conf:1: (0028,0010) is no private element"));
    EXPECT_TRUE(contains(checkConfiguration(nullptr, nullptr).report.notes.at(0), "CONF is not set"));
    EXPECT_TRUE(contains(checkConfiguration((m_folder / "none").c_str(), nullptr).report.notes.at(0),
                         "none: No such file or directory: every setting has its default"));
}
