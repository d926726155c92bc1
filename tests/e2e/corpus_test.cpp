#include <signal.h>
#include <stdlib.h>
#include <string.h>

#include <map>

#include "pack/unpack.h"
#include "tests/shared/daemon_process.h"
#include "tests/shared/testobject.h"

namespace {

/// Real objects; skipped where they are not at hand.
class CorpusTest : public testing::Test {
protected:
    CorpusTest() {
        const char* variable = getenv("VINTAKD_CORPUS");
        m_corpus = variable ? variable : VINTAKD_CORPUS_DIR;
    }
    void SetUp() override {
        if (!std::filesystem::is_directory(m_corpus)) GTEST_SKIP() << "no folder of real objects";
    }

    std::map<std::string, std::string> filesIn(const char* folder) const {
        std::map<std::string, std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder / folder))
            files[entry.path().filename()] = readFile(entry.path());
        return files;
    }

    std::string m_corpus;
    TemporaryFolder m_folder;
};

}  // namespace

TEST_F(CorpusTest, LosslessVariantsOfAnImageHaveTheSamePixels) {
    DaemonProcess daemon;
    for (const char* image : {"CT1", "MR4", "RG3", "XA1", "US1", "VL1"}) {
        std::string pixels;
        for (const char* variant : {"UNC", "J2KR", "JPLL", "RLE", "JLSL"}) {
            const std::string name = std::string("WG04_") + image + "_" + variant;
            TestRequest request{.input = m_corpus + "/" + name + ".dcm"};
            if (!std::filesystem::exists(request.input)) continue;
            request.output = m_folder / name;
            ASSERT_EQ(request.error(daemon.gateway()), "") << name;
            const std::string raw = readFile(request.output + "_1.raw");
            if (pixels.empty()) pixels = raw;
            EXPECT_FALSE(raw.empty()) << name;
            EXPECT_EQ(raw == pixels, true) << name << " differs from the uncompressed image";
        }
    }
}

TEST_F(CorpusTest, EveryObjectConvertsOrFailsWithItsNameAndACause) {
    DaemonProcess daemon;
    for (const auto& entry : std::filesystem::directory_iterator(m_corpus)) {
        if (entry.path().extension() != ".dcm") continue;
        TestRequest request{.input = entry.path(), .output = m_folder / "out", .writeMask = 3};
        const std::string error = request.error(daemon.gateway());
        if (error.empty() || entry.path().filename() == "HTJ2K_08_RGB.dcm") {
            EXPECT_EQ(error, "");
            continue;
        }
        const size_t name = error.find(entry.path().filename().string() + ": ");
        ASSERT_NE(name, std::string::npos) << error;
        EXPECT_GT(error.size(), name + entry.path().filename().string().size() + 2) << error;
    }
    // A machine that is busy elsewhere may cost a servant its knock, and that is no fault of an object.
    for (const int fatal : {SIGILL, SIGABRT, SIGBUS, SIGFPE, SIGSEGV})
        EXPECT_EQ(daemon.log().find(std::string("by SIG") + sigabbrev_np(fatal)), std::string::npos)
            << daemon.log();
}

TEST_F(CorpusTest, PackedAndSeparateAreTheSame) {
    DaemonProcess daemon;
    for (const auto& entry : std::filesystem::directory_iterator(m_corpus)) {
        if (entry.path().extension() != ".dcm") continue;
        for (const char* folder : {"s", "p", "u"})
            std::filesystem::create_directory(m_folder / folder);
        TestRequest separate{.input = entry.path(), .output = m_folder / "s/o", .writeMask = 3};
        TestRequest packed{.input = entry.path(), .output = m_folder / "p/o", .writeMask = 0x23};
        const std::string error = separate.error(daemon.gateway());
        EXPECT_EQ(packed.error(daemon.gateway()), error);
        EXPECT_EQ(std::filesystem::exists(m_folder / "p/o.index"), error.empty()) << entry.path();
        if (error.empty()) {
            pack::unpack(m_folder / "p/o.index", m_folder / "u/");
            for (const char* beside : {".pdcm", ".pdf", ".obsinfo", ".fingerprint"})
                if (std::filesystem::exists(m_folder / "p/o" + beside))
                    std::filesystem::copy_file(m_folder / "p/o" + beside, m_folder / "u/o" + beside);
            EXPECT_EQ(filesIn("u") == filesIn("s"), true) << entry.path();
        }
        for (const char* folder : {"s", "p", "u"})
            std::filesystem::remove_all(m_folder / folder);
    }
}

TEST_F(CorpusTest, PartsMakeWhatOneServantMakes) {
    DaemonProcess daemon({"--servers", "2"});
    std::string said[2];
    for (const char* parts : {"1", "3"}) {
        const std::string out = m_folder / parts;
        std::filesystem::create_directory(out);
        said[*parts == '3'] =
            runProgram(VINTAK_BINARY,
                       {"convert", m_corpus, "-o", out + "/", "--packed", "--jobs", "1", "--parts", parts},
                       daemon.environment())
                .errors;
    }
    EXPECT_EQ(said[0], said[1]);
    EXPECT_EQ(filesIn("1") == filesIn("3"), true);
}

TEST_F(CorpusTest, QueriedValuesAgreeWithTheToolkit) {
    DaemonProcess daemon;
    dcmEnableUnknownVRConversion.set(OFTrue);
    for (const char* name :
         {"WG04_CT1_JPLL", "emri_small_big_endian", "explicit_VR-UN", "color-pl", "liver"}) {
        TestRequest query{
            .input = m_corpus + "/" + name + ".dcm",
            .dumponly = true,
            .tags = {0x0008, 0x0018, 0x0010, 0x0010, 0x0028, 0x0010, 0x0028, 0x0030, 0x0028, 0x0004}};
        DcmFileFormat file;
        ASSERT_TRUE(file.loadFile(query.input.c_str()).good()) << name;
        std::string expected;
        for (size_t i = 0; i < query.tags.size(); i += 2)
            expected += textAt(*file.getDataset(), DcmTagKey(query.tags[i], query.tags[i + 1])) + ";";
        const std::string characterSet = textAt(*file.getDataset(), DCM_SpecificCharacterSet);
        EXPECT_EQ(query.send(daemon.gateway()), expected + "<<<" + characterSet + ">>>") << name;
    }
}
