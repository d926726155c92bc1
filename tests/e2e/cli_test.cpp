#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctk.h>

#include <filesystem>

#include "tests/e2e/cli_fixture.h"

namespace fs = std::filesystem;

TEST_F(CliTest, UsageErrorsAndHelpOnEveryLevel) {
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{},
                                                      {"nonsense"},
                                                      {"help", "nonsense"},
                                                      {"check-config", "no such folder"},
                                                      {"convert"},
                                                      {"convert", "--jobs", "0", "x"},
                                                      {"convert", "--frame", "x", "y"},
                                                      {"convert", "--frame", "-1", "y"},
                                                      {"convert", "a/x.dcm", "b/x.dcm"},
                                                      {"convert", "x", "--files-from", "y"},
                                                      {"convert", "x", "-0"},
                                                      {"convert", "x", "--skip-existing", "--no-cache"},
                                                      {"query", "x"},
                                                      {"query", "-t", "NoSuchKeyword", "x"},
                                                      {"query", "-t", "0008,00601", "x"},
                                                      {"query", "x", "-t", "-1,10"},
                                                      {"pack", "-o", "x", "y.desc", "-0"},
                                                      {"pack", "-o", "x/", "y.desc"},
                                                      {"dump"},
                                                      {"trace"},
                                                      {"trace", "perhaps"},
                                                      {"ping", "--wrong"}}) {
        const ProgramResult result = vintak(arguments);
        EXPECT_EQ(result.status, 2) << testing::PrintToString(arguments);
        EXPECT_FALSE(result.errors.empty());
    }
    for (const char* word : {"--help", "--version"}) {
        EXPECT_EQ(vintak({word}).status, 0);
        const std::string full = VINTAK_BINARY + (" " + std::string(word)) + " >/dev/full";
        EXPECT_EQ(runProgram("/bin/sh", {"-c", full}, m_daemon.environment()).status, 4);
    }
    for (const char* command : {"convert", "dump", "query", "ping", "status", "trace", "spool"}) {
        const ProgramResult result = vintak({command, "--help"});
        EXPECT_EQ(result.status, 0) << command;
        EXPECT_EQ(result.output.find("Usage: vintak " + std::string(command)), 0u) << command;
        EXPECT_EQ(vintak({"help", command}).output, result.output);
    }
}

TEST_F(CliTest, ProgramsOfCommandsAreFoundWhereTheyAreInstalled) {
    const auto install = [&](const char* name, const std::string& folder) {
        fs::create_directories(std::string(m_folder / folder));
        fs::copy_file(fs::path(VINTAK_BINARY).parent_path() / name, m_folder / folder + "/" + name);
    };
    const auto spool = [&](const std::string& vintak) {
        return runProgram(m_folder / vintak, {"spool", "--help"}, m_daemon.environment());
    };
    install("vintak", "bin");
    const ProgramResult missing = spool("bin/vintak");
    EXPECT_EQ(missing.status, 4);
    EXPECT_EQ(missing.errors, "vintak: the program for \"spool\" could not be started: " +
                                  (m_folder / "libexec/vintak/vintak-feed") +
                                  ": No such file or directory\n");
    install("vintak-feed", "libexec/vintak");
    EXPECT_EQ(spool("bin/vintak").output.find("Usage: vintak spool"), 0u);
    fs::permissions(std::string(m_folder / "libexec/vintak/vintak-feed"), fs::perms::owner_read);
    EXPECT_TRUE(contains(spool("bin/vintak").errors, "Permission denied"));
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
    EXPECT_EQ(vintak({"query", m_folder / "bad.dcm", a, "--once", "Rows"}).status, 4) << "a is not asked";
    const std::string lines = m_folder / "1\n2";
    EXPECT_EQ(vintak({"query", lines, "-t", "Rows"}).errors,
              (m_folder / "1?2: Error loading file: ") + (m_folder / "1?2: No such file or directory\n"));
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

TEST_F(CliTest, WhatIsPrintedWithoutAnOutputGoesNowhereElse) {
    const ProgramResult result =
        runProgram("/bin/sh", {"-c", "exec \"$0\" status >&-", VINTAK_BINARY}, m_daemon.environment());
    EXPECT_EQ(result.status, 4);
    EXPECT_TRUE(contains(result.errors, "the output could not be written"));
    EXPECT_EQ(vintak({"ping"}).status, 0) << "not into the segment";
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

TEST_F(CliTest, SeriesArePackedShownCheckedAndUnpacked) {
    const std::string out = m_folder / "out/";
    std::filesystem::create_directory(out);
    ASSERT_EQ(vintak({"convert", m_folder / "a.dcm", "-o", out, "--packed"}).status, 0);
    EXPECT_FALSE(std::filesystem::exists(out + "a_1.t.qi4"));
    ASSERT_EQ(vintak({"convert", m_folder / "b.dcm", "-o", out}).status, 0);
    ProgramResult result = vintak({"pack", "-o", m_folder / "s", out + "a.desc", out + "b.desc"});
    EXPECT_TRUE(contains(result.output, "packed 3 frames of 2 objects, ")) << result.errors;
    EXPECT_EQ(vintak({"verify", m_folder / "s.index", out + "a.index"}).status, 0);
    for (const char* suffix : {"", ".f.qi4", ".t.qi4", ".p.qi4", ".raw", ".128x128t.cw1"}) {
        result = vintak({"show", (m_folder / "s.index#3") + suffix});
        EXPECT_EQ(result.status, 0) << result.errors;
        const std::string separate = out + "b_1" + (*suffix ? suffix : ".f.qi4");
        const auto said = [](const std::string& text) { return text.substr(text.find(": ")); };
        EXPECT_EQ(said(result.output), said(vintak({"show", separate}).output));
        EXPECT_EQ(vintak({"info", (m_folder / "s.index#1") + suffix}).status, 0);
    }
    EXPECT_TRUE(contains(vintak({"show", m_folder / "s.index#4"}).errors, "there is no frame 4 of 3"));
    EXPECT_TRUE(contains(vintak({"info", m_folder / "s.index"}).errors, "s.index#1"));
    EXPECT_TRUE(contains(vintak({"info", m_folder / "none"}).errors, "none: no such file"));
    EXPECT_TRUE(contains(vintak({"unpack", m_folder / "s.index", "-o", m_folder / "u/"}).output, "unpacked"));
    for (const char* name : {"b_1.f.qi4", "b_1.raw", "b.desc", "b.pdcm", "a.desc", "a.pdcm"})
        EXPECT_EQ(readFile(m_folder / "u/" + name), readFile(out + name)) << name;
    std::string bytes = readFile(m_folder / "s.heads");
    bytes.back() ^= 1;
    writeFile(m_folder / "s.heads", bytes);
    result = vintak({"verify", m_folder / "s.index", out + "a.index"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.errors, "s.heads: the checksum of the "));
    EXPECT_EQ(vintak({"pack", out + "a.desc"}).status, 2);
    EXPECT_EQ(vintak({"pack", "-o", m_folder / "s", out + "none.desc"}).status, 4);
}

TEST_F(CliTest, ProgressIsForTerminalsAndColoursForThoseWhoWantThem) {
    const auto onTerminal = [&](const std::string& setting) {
        const std::string inside = setting + " " + VINTAK_BINARY + " convert " + (m_folder / "a.dcm") + " " +
                                   (m_folder / "bad.dcm") + " -o " + (m_folder / "");
        std::vector<std::string> environment = m_daemon.environment();
        environment.emplace_back("TERM=xterm");
        return runProgram("/usr/bin/script", {"-qc", inside, "/dev/null"}, environment).output;
    };
    EXPECT_FALSE(contains(vintak({"convert", m_folder / "a.dcm", "-o", m_folder / ""}).errors, "\r"));
    if (!std::filesystem::exists("/usr/bin/script")) GTEST_SKIP() << "script(1) is missing";
    const std::string coloured = onTerminal(""), plain = onTerminal("NO_COLOR=1");
    EXPECT_TRUE(contains(coloured, "] 2/2, 1 failed, ") && contains(coloured, "/s"));
    EXPECT_TRUE(contains(coloured, "/bad.dcm: \033[31mError"));
    EXPECT_TRUE(contains(plain, "/bad.dcm: Error"));
}

#ifdef VINTAKD_CLIENT_LIBRARY
TEST_F(CliTest, ProgramsInOtherLanguagesConvertDumpAndQuery) {
    if (runProgram("/bin/sh", {"-c", "python3 -c 'import ctypes'"}).status != 0)
        GTEST_SKIP() << "python3 is missing";
    DcmFileFormat file;
    file.loadFile((m_folder / "a.dcm").c_str());
    file.getDataset()->putAndInsertString(DCM_PatientComments, "a;b");
    file.saveFile((m_folder / "a.dcm").c_str());
    file.getDataset()->putAndInsertString(DCM_NumberOfFrames, "4");
    file.saveFile((m_folder / "short.dcm").c_str());
    std::vector<std::string> environment = m_daemon.environment();
    environment.emplace_back("VINTAKD_CLIENT_LIBRARY=" VINTAKD_CLIENT_LIBRARY);
    environment.emplace_back("PYTHONDONTWRITEBYTECODE=1");
    const std::string sources = VINTAKD_SOURCE_DIR, folder = m_folder.path();
    const auto python = [&](const std::string& words) {
        return runProgram("/bin/sh", {"-c", "exec python3 " + words}, environment);
    };
    ProgramResult result =
        python(sources + "/tests/e2e/python_client.py " + folder + " " + sources + "/examples/python");
    EXPECT_EQ(result.output, "done\n") << result.errors;
    // And it wrote what the command line writes.
    EXPECT_EQ(vintak({"convert", m_folder / "a.dcm", "-o", folder + "/"}).status, 0);
    for (const char* kind : {".desc", ".pdcm", "_1.raw", "_2.t.qi4"})
        EXPECT_EQ(readFile(folder + "/py" + kind), readFile(folder + "/a" + kind)) << kind;
    result = python(sources + "/examples/python/vintakd.py " + folder + "/bad.dcm " + folder + "/x");
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.errors, "/bad.dcm: Error loading file: "));
}
#endif
