#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctk.h>
#include <sched.h>
#include <sys/mount.h>

#include "tests/shared/daemon_process.h"
#include "tools/phantom/phantomobject.h"

namespace {

class CliTest : public testing::Test {
protected:
    CliTest() {
        writePhantom(m_folder / "a.dcm", {2, 16});
        writePhantom(m_folder / "b.dcm", {1, 16});
        writeFile(m_folder / "bad.dcm", "not an object");
    }

    ProgramResult vintak(const std::vector<std::string>& arguments) {
        return runProgram(VINTAK_BINARY, arguments, m_daemon.environment());
    }

    DaemonProcess m_daemon;
    TemporaryFolder m_folder;
};

}  // namespace

TEST_F(CliTest, ConvertReportsEveryFailureAndSaysSoInItsStatus) {
    const std::string out = m_folder / "out/";
    std::filesystem::create_directory(out);
    ProgramResult result =
        vintak({"convert", m_folder / "a.dcm", m_folder / "b.dcm", "-o", out, "--mask", "4"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output.substr(0, 24), "2 converted, 0 failed in");
    for (const char* name : {"a.desc", "a.pdcm", "a_1.raw", "a_2.raw", "b_1.raw"})
        EXPECT_TRUE(std::filesystem::exists(out + name)) << name;

    result = vintak({"convert", m_folder / "a.dcm", m_folder / "bad.dcm", m_folder / "none.dcm", "-o", out});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output.substr(0, 24), "1 converted, 2 failed in");
    EXPECT_TRUE(contains(result.errors, (m_folder / "none.dcm") + ": Error loading file: " +
                                            (m_folder / "none.dcm") + ": No such file or directory\n"));
    EXPECT_EQ(vintak({"convert", m_folder / "bad.dcm", "-o", out}).status, 4);

    const std::string longName = m_folder / std::string(1020, 'n');
    result = vintak({"convert", longName, "-o", out});
    EXPECT_EQ(result.status, 4);
    EXPECT_TRUE(contains(result.errors, "the limit is 1023"));
}

TEST_F(CliTest, IncompleteResultsAreSaidCountedAndSeenInTheStatus) {
    DcmFileFormat file;
    file.loadFile((m_folder / "a.dcm").c_str());
    file.getDataset()->putAndInsertString(DCM_NumberOfFrames, "4");
    file.saveFile((m_folder / "short.dcm").c_str());
    const std::string out = m_folder / "out/", cause = "2 of 4 frames were converted: frame 3 of 4 ";
    std::filesystem::create_directory(out);
    const ProgramResult result = vintak({"convert", m_folder / "short.dcm", m_folder / "b.dcm", "-o", out});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output.substr(0, 42), "2 converted (1 with warnings), 0 failed in");
    EXPECT_EQ(result.errors.find((m_folder / "short.dcm") + ": warning: " + cause), 0U) << result.errors;
    EXPECT_TRUE(contains(m_daemon.log(), "vintakd warning (0) " + (m_folder / "short.dcm") + ": " + cause));

    // Nothing stands behind the answer of a client that does not ask.
    vintakd::VintakMsgIn header{};
    (m_folder / "short.dcm").copy(header.inputFile, sizeof header.inputFile - 1);
    (out + "raw").copy(header.outputPrefix, sizeof header.outputPrefix - 1);
    for (const bool asks : {false, true}) {
        header.wantWarnings = asks;
        const ReservedChannel reserved(m_daemon.gateway());
        ipc::Channel& channel = m_daemon.gateway().getChannel(reserved.index());
        channel.send(reinterpret_cast<const char*>(&header), sizeof header);
        const ipc::Message message = channel.recv();
        const std::string answer(message.getPointer(), message.getSize());
        EXPECT_EQ(answer.substr(0, 17), std::string("<<<ISO_IR 100>>>\0", 17));
        EXPECT_EQ(answer.substr(17, cause.size()), asks ? cause : "");
        EXPECT_EQ(answer.back(), '\0');
    }
}

TEST_F(CliTest, UsageErrorsAndHelpOnEveryLevel) {
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{},
                                                      {"nonsense"},
                                                      {"convert"},
                                                      {"convert", "--jobs", "0", "x"},
                                                      {"convert", "--frame", "x", "y"},
                                                      {"convert", "--frame", "-1", "y"},
                                                      {"convert", "a/x.dcm", "b/x.dcm"},
                                                      {"query", "x"},
                                                      {"query", "-t", "NoSuchKeyword", "x"},
                                                      {"query", "-t", "0008,00601", "x"},
                                                      {"dump"},
                                                      {"trace"},
                                                      {"trace", "perhaps"},
                                                      {"ping", "--wrong"}}) {
        const ProgramResult result = vintak(arguments);
        EXPECT_EQ(result.status, 2) << testing::PrintToString(arguments);
        EXPECT_FALSE(result.errors.empty());
    }
    EXPECT_EQ(vintak({"--help"}).status, 0);
    for (const char* command : {"convert", "dump", "query", "ping", "status", "trace"}) {
        const ProgramResult result = vintak({command, "--help"});
        EXPECT_EQ(result.status, 0) << command;
        EXPECT_EQ(result.output.find("Usage: vintak " + std::string(command)), 0u) << command;
    }
}

TEST_F(CliTest, QueryTakesNumbersAndKeywords) {
    const std::string a = m_folder / "a.dcm", quoted = m_folder / "\"b\".dcm";
    writePhantom(quoted, {2, 16});
    ProgramResult result = vintak({"query", a, quoted, "-t", "Rows", "--once", "Modality"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output, a + ": (0008,0060) Modality = CT\n" + a + ": (0028,0010) Rows = 16\n" + quoted +
                                 ": (0028,0010) Rows = 16\n");
    result = vintak({"query", quoted, "-t", "(0028,0008)", "--json"});
    EXPECT_EQ(result.output,
              "[\n  {\"file\": \"" + (m_folder / "\\\"b\\\".dcm") +
                  "\", \"characterSet\": \"ISO_IR 100\", \"tags\": [\n    {\"tag\": \"(0028,0008)\", "
                  "\"keyword\": \"NumberOfFrames\", \"value\": \"2\"}]}\n]\n");
    EXPECT_EQ(vintak({"query", a, m_folder / "bad.dcm", "-t", "Rows"}).status, 1);
}

TEST_F(CliTest, DumpStatusAndPing) {
    const ProgramResult dump = vintak({"dump", m_folder / "b.dcm"});
    EXPECT_EQ(dump.status, 0);
    EXPECT_EQ(dump.output.substr(0, 26), "(0008,0005) CS ISO_IR 100\n");
    EXPECT_FALSE(contains(dump.output, "<<<"));
    EXPECT_EQ(vintak({"status"}).output, "1 pieces of 16384 bytes sized channels.\n  0: server(" +
                                             std::to_string(m_daemon.servantPid()) + ") free\n");
    EXPECT_EQ(vintak({"ping", "-n", "3"}).status, 0);
}

TEST_F(CliTest, MissingDaemonHasAStatusOfItsOwn) {
    EXPECT_EQ(vintak({"ping", "--segment", "vintakd_e2e_nobody"}).status, 3);
    m_daemon.stop(SIGKILL);  // leaves its segment behind
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"ping"},
                                                      {"status"},
                                                      {"convert", "x"},
                                                      {"dump", "x"},
                                                      {"query", "x", "-t", "Rows"}}) {
        const ProgramResult result = vintak(arguments);
        EXPECT_EQ(result.status, 3) << arguments.front() << result.errors;
    }
}

TEST_F(CliTest, OutputThatCannotBeWrittenIsAFailure) {
    const std::string command = std::string(VINTAK_BINARY) + " dump " + (m_folder / "a.dcm") + " > /dev/full";
    const ProgramResult result = runProgram("/bin/sh", {"-c", command}, m_daemon.environment());
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.errors, "vintak: the output could not be written\n");
}

TEST_F(CliTest, ResultsAreWhereTheCallerLooksOrTheCallFails) {
    const std::string out = m_folder / "out", elsewhere = m_folder / "elsewhere",
                      private_ = m_folder / "private";
    for (const std::string& folder : {out, elsewhere})
        std::filesystem::create_directory(folder);
    // As under PrivateTmp: another folder below the same path.
    const auto hide = [&] {
        const bool separate = unshare(CLONE_NEWNS) == 0 &&
                              mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) == 0 &&
                              mount(elsewhere.c_str(), out.c_str(), "", MS_BIND, nullptr) == 0;
        if (!separate || mkdir(private_.c_str(), 0700) != 0) return;
        mount("none", private_.c_str(), "tmpfs", 0, nullptr);
        mkdir((private_ + "/inside").c_str(), 0700);
    };
    DaemonProcess daemon({"--servers", "1"}, hide);
    if (!std::filesystem::exists(private_)) GTEST_SKIP() << "no mount namespace can be made here";
    const auto convert = [&](const std::string& prefix, const std::string& cache) {
        return runProgram(VINTAK_BINARY, {"convert", m_folder / "a.dcm", "-o", prefix, "-c", cache},
                          daemon.environment());
    };
    const std::string outside = m_folder / "x", why = "than the client (one of them has a mount namespace";
    ProgramResult result = convert(out + "/", outside);
    EXPECT_EQ(result.status, 4);
    EXPECT_TRUE(contains(result.errors, out + "/a: the daemon sees another folder at " + out + " " + why));
    EXPECT_EQ(convert(outside, out + "/").status, 4) << "the folder of the cache files";
    EXPECT_TRUE(std::filesystem::is_empty(out) && std::filesystem::is_empty(elsewhere));
    result = convert(private_ + "/inside/", outside);
    EXPECT_TRUE(contains(result.errors, "the client sees no folder at " + private_ + "/inside;"));
    EXPECT_EQ(convert(outside, outside).status, 0);
    result = convert(m_folder / "none/", outside);
    EXPECT_TRUE(contains(result.errors, "Cannot create file: " + (m_folder / "none/a.desc") + " (No such"));
}
