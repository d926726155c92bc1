// What `vintak convert` takes, leaves and tells.
#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctk.h>
#include <sched.h>
#include <sys/mount.h>

#include "tests/e2e/cli_fixture.h"

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

    // Nothing stands behind the answer of a client that does not ask; a conversion that asks for tags is one
    // too.
    vintakd::VintakMsgIn header{};
    (m_folder / "short.dcm").copy(header.inputFile, sizeof header.inputFile - 1);
    (out + "raw").copy(header.outputPrefix, sizeof header.outputPrefix - 1);
    for (const auto& [asks, tags] : {std::pair{false, 0}, {true, 0}, {true, 1}}) {
        header.wantWarnings = asks;
        header.numTags = tags;
        std::string request(reinterpret_cast<const char*>(&header), sizeof header);
        if (tags == 1) request.append("\x08\0\x60\0", 4);
        const std::string value = tags == 1 ? "CT;" : "";
        const ReservedChannel reserved(m_daemon.gateway());
        ipc::Channel& channel = m_daemon.gateway().getChannel(reserved.index());
        channel.send(request.data(), request.size());
        const ipc::Message message = channel.recv();
        std::string answer(message.getPointer(), message.getSize());
        EXPECT_EQ(answer.substr(0, value.size()), value);
        answer.erase(0, value.size());
        EXPECT_EQ(answer.substr(0, 17), std::string("<<<ISO_IR 100>>>\0", 17));
        EXPECT_EQ(answer.substr(17, cause.size()), asks ? cause : "");
        EXPECT_EQ(answer.back(), '\0');
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

TEST_F(CliTest, FoldersAreGoneThroughByContentAndKeptBelowThePrefix) {
    const std::string in = m_folder / "in", out = m_folder / "out/";
    std::filesystem::create_directories(in + "/p/q");
    std::filesystem::create_directory_symlink(in, in + "/p/round");
    writePhantom(in + "/x.dcm", {1, 16});
    writePhantom(in + "/first.dcm", {1, 16});
    writePhantom(in + "/p/x.dcm", {1, 16});
    writePhantom(in + "/p/q/no extension", {1, 16});
    writeFile(in + "/p/notes.dcm", "no object");
    writeFile(in + "/p/q/cut", readFile(in + "/x.dcm").substr(0, 300));
    const Became expected{{"first.dcm", "converted"},
                          {"x.dcm", "converted"},
                          {"no extension", "converted"},
                          {"cut", "failed object"}};
    // One at a time: the first one finds no folder of the results, and no other has made it.
    EXPECT_EQ(convert({in, "-o", out, "--jobs", "1"}, 1), expected);
    for (const char* name : {"x.desc", "p/x_1.raw", "p/q/no extension.pdcm"})
        EXPECT_TRUE(std::filesystem::exists(out + name)) << name;
    // What the JSON line says is what lies there.
    std::string line;
    for (std::istringstream lines(m_json);
         std::getline(lines, line) && !contains(line, "/q/no extension\"");) {
    }
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(out + "p/q")) {
        ++files;
        EXPECT_TRUE(contains(line, "{\"path\":\"" + entry.path().string() +
                                       "\",\"size\":" + std::to_string(entry.file_size()) + "}"));
    }
    EXPECT_EQ(files, 8U);
    EXPECT_EQ(std::count(line.begin(), line.end(), '{'), 9);

    EXPECT_EQ(convert({in, out, "-o", out, "--skip-existing"}, 1).size(), 4U) << "results are no objects";

    std::filesystem::create_directory(m_folder / "empty");
    EXPECT_EQ(vintak({"convert", m_folder / "empty", "-o", out}).status, 4);
    EXPECT_EQ(vintak({"convert", in, m_folder / "b.dcm", in + "/p", "-o", m_folder / "o/"}).status, 1)
        << "x.dcm of both folders would write the same";
}

TEST_F(CliTest, ListsOfNamesMayHoldAnyName) {
    const std::string list = m_folder / "list", odd = m_folder / "line\nbreak \xff\".dcm",
                      out = m_folder / "o/";
    writePhantom(odd, {1, 16});
    writeFile(list, (m_folder / "a.dcm") + "\n\n" + (m_folder / "b.dcm") + "\n../out.dcm");
    EXPECT_EQ(convert({"--files-from", list, "-o", out}, 1),
              (Became{{"a.dcm", "converted"}, {"b.dcm", "converted"}, {"out.dcm", "failed request"}}));
    EXPECT_TRUE(std::filesystem::exists(out + m_folder.path() + "/a.desc")) << "the folder is kept";
    const std::string command = "printf '%s\\0' \"$1\" | " + std::string(VINTAK_BINARY) +
                                " convert --files-from - -0 --json -o " + (m_folder / "l/");
    const ProgramResult result = runProgram("/bin/sh", {"-c", command, "sh", odd}, m_daemon.environment());
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(contains(result.output, "line\\u000abreak \xEF\xBF\xBD\\\".dcm\",\"pathBytes\":\""));
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1);
    EXPECT_EQ(vintak({"convert", "--files-from", m_folder / "none", "-o", out}).status, 4);
    EXPECT_EQ(vintak({"convert", "--files-from", "/dev/null", "-o", out}).status, 0);
    writeFile(list, (m_folder / "a.dcm") + "\n" + std::string(5000, 'n') + "\n" + (m_folder / "b.dcm"));
    EXPECT_EQ(vintak({"convert", "--files-from", list, "-o", out}).status, 1) << "a list that makes no sense";
}

TEST_F(CliTest, ResultsThatAreThereCountOnlyWhenTheyAreComplete) {
    const std::string object = m_folder / "a.dcm", out = m_folder / "out/", copy = out + "a.pdcm";
    std::filesystem::create_directory(out);
    const auto again = [&](std::vector<std::string> options = {}) {
        options.insert(options.end(), {object, "-o", out, "--skip-existing"});
        return convert(options, 0)["a.dcm"];
    };
    EXPECT_EQ(again(), "converted");
    EXPECT_EQ(again(), "skipped");
    EXPECT_EQ(again({"--mask", "7"}), "skipped") << "less than what is there";
    const std::string whole = readFile(copy), descriptor = readFile(out + "a.desc");
    const std::function<void()> damages[] = {
        [&] { std::filesystem::remove(out + "a_2.raw"); },
        [&] { writeFile(out + "a_2.p.qi4", ""); },
        [&] { std::filesystem::remove(copy); },                       // the servant was killed on its way
        [&] { writeFile(copy, whole.substr(0, whole.size() - 1)); },  // or while it wrote the copy
        [&] { writeFile(out + "a.desc", descriptor.substr(0, 5)), writeFile(copy, whole); },
        [&] {
            writeFile(out + "a.desc", descriptor.substr(0, descriptor.find('\n') + 1)),
                writeFile(copy, whole);
        },
        [&] {
            writePhantom(object, {2, 16});
        },     // another object of the same name
        [&] {  // a single frame came to half of it
            std::filesystem::last_write_time(
                out + "a_1.raw", std::filesystem::file_time_type::clock::now() + std::chrono::hours(1));
        }};
    for (const auto& damage : damages) {
        damage();
        EXPECT_EQ(again(), "converted") << &damage - damages;
        EXPECT_EQ(again(), "skipped") << &damage - damages;
    }
    // Packed, another set of files has to be there.
    EXPECT_EQ(again({"--packed"}), "converted");
    EXPECT_EQ(again({"--packed"}), "skipped");
    const std::string small = readFile(out + "a.small");
    const std::function<void()> packDamages[] = {[&] { std::filesystem::remove(out + "a.index"); },
                                                 [&] { writeFile(out + "a.small", small.substr(1)); },
                                                 [&] { std::filesystem::remove(out + "a.heads"); }};
    for (const auto& damage : packDamages) {
        damage();
        EXPECT_EQ(again({"--packed"}), "converted");
        EXPECT_EQ(again({"--packed"}), "skipped");
    }
    DcmFileFormat file;
    file.loadFile(object.c_str());
    file.getDataset()->putAndInsertString(DCM_NumberOfFrames, "4");
    file.saveFile(object.c_str());
    for (int round = 0; round < 2; ++round)
        EXPECT_EQ(convert({object, "-o", out, "--skip-existing"}, 1)["a.dcm"], "incomplete");
}

TEST_F(CliTest, FailuresHaveAClassAStatusAndAPlace) {
    const std::string in = m_folder / "in", out = m_folder / "out/", aside = in + "/aside";
    std::filesystem::create_directories(in + "/p");
    std::filesystem::create_directory(out);
    const auto change = [&](const std::string& name, const DcmTagKey& tag, const char* value) {
        DcmFileFormat file;
        file.loadFile((m_folder / "a.dcm").c_str());
        EXPECT_TRUE(file.getDataset()->putAndInsertString(tag, value).good());
        EXPECT_TRUE(file.saveFile((in + name).c_str()).good());
    };
    change("/p/bits", DCM_BitsAllocated, "32");
    change("/huge", DCM_Rows, "65535");
    DcmFileFormat large;
    large.loadFile((in + "/huge").c_str());
    large.getDataset()->putAndInsertUint16(DCM_Columns, 65535);
    large.saveFile((in + "/huge").c_str());
    change("/contradiction", DCM_BitsStored, "17");
    writeFile(in + "/cut", readFile(m_folder / "a.dcm").substr(0, 300));
    std::filesystem::create_directories(out + "no folder/a.desc");
    EXPECT_EQ(vintak({"convert", in + "/p/bits", "-o", out}).status, 7);
    EXPECT_EQ(vintak({"convert", in + "/huge", "-o", out}).status, 6);
    EXPECT_EQ(convert({m_folder / "a.dcm", "-o", out + "no folder/"}, 4)["a.dcm"], "failed output");
    EXPECT_EQ(convert({m_folder / "none", m_folder / "bad.dcm", "-o", out}, 4),
              (Became{{"none", "failed file"}, {"bad.dcm", "failed object"}}));
    EXPECT_EQ(convert({m_folder / std::string(1020, 'n'), "-o", out}, 4).begin()->second, "failed request");

    EXPECT_EQ(convert({in, "-o", out, "--move-failed", aside}, 4), (Became{{"bits", "failed unsupported"},
                                                                           {"huge", "failed limit"},
                                                                           {"contradiction", "failed object"},
                                                                           {"cut", "failed object"}}));
    EXPECT_FALSE(std::filesystem::exists(in + "/p/bits"));
    EXPECT_TRUE(contains(readFile(aside + "/p/bits.reason.txt"), "\nclass: unsupported\ncause: "));
    writeFile(in + "/cut", "other bytes");
    vintak({"convert", in + "/cut", m_folder / "none", "-o", out, "--move-failed", aside});
    EXPECT_EQ(readFile(aside + "/cut.1"), "other bytes") << "never over another";
    EXPECT_EQ(convert({in, "-o", out}, 4).size(), 4U) << "objects that were put aside are objects";
    EXPECT_EQ(vintak({"convert", in, "-o", out, "--move-failed", aside}).status, 4) << "there is none left";
}

TEST_F(CliTest, AnInterruptedRunFinishesWhatRunsAndSaysWhatIsLeft) {
    const std::string script =
        "mkfifo $1/fifo; $2 convert --files-from $1/fifo -o $1/o/ & pid=$!; exec 3>$1/fifo; echo $1/a.dcm "
        ">&3\n"
        "until [ -s $1/o/$1/a.pdcm ]; do sleep 0.02; done; kill -TERM $pid; wait $pid";
    ProgramResult result =
        runProgram("/bin/sh", {"-c", script, "sh", m_folder.path(), VINTAK_BINARY}, m_daemon.environment());
    EXPECT_EQ(result.status, 130);
    EXPECT_EQ(result.output.substr(0, 24), "1 converted, 0 failed in");
    EXPECT_TRUE(contains(result.errors, "interrupted; what follows in the list is left\n"));

    const ReservedChannel taken(m_daemon.gateway());  // the only one
    const std::string other =
        "$2 convert $1/a.dcm $1/b.dcm --jobs 1 --json -o $1/ & pid=$!\n"
        "until grep -qE 'SigCgt:.*[4-7c-f]...$' /proc/$pid/status; do sleep 0.02; done\n"
        "kill -TERM $pid; wait $pid";
    result =
        runProgram("/bin/sh", {"-c", other, "sh", m_folder.path(), VINTAK_BINARY}, m_daemon.environment());
    EXPECT_EQ(result.status, 130);
    EXPECT_TRUE(contains(result.errors, "interrupted; 2 left\n"));
    EXPECT_TRUE(contains(result.output, "/b.dcm\",\"result\":\"left\""));
    if (vintak({"view", "--help"}).status != 0) return;

    for (const char* folder : {"work", "page"})
        std::filesystem::create_directories(m_folder / folder);
    writeFile(m_folder / "page/index.html", "");
    std::string shown = "TMPDIR=$1/work VINTAK_PAGE=$1/page $2 view --no-open $1/a.dcm $1/b.dcm & pid=$!\n";
    shown += other.substr(other.find('\n') + 1);
    result =
        runProgram("/bin/sh", {"-c", shown, "sh", m_folder.path(), VINTAK_BINARY}, m_daemon.environment());
    EXPECT_EQ(result.status, 130);
    EXPECT_TRUE(contains(result.errors, "interrupted; nothing was shown\n"));
    EXPECT_TRUE(std::filesystem::is_empty(m_folder / "work"));
}
