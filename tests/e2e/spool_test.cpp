#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>

#include <sstream>

#include "tests/shared/daemon_process.h"
#include "tools/phantom/phantomobject.h"

namespace fs = std::filesystem;

namespace {

class SpoolTest : public testing::Test {
protected:
    SpoolTest() {
        fs::create_directories(m_folder / "spool/incoming/priority");
        writePhantom(m_folder / "two", {2, 16});
        writePhantom(m_folder / "one", {1, 16});
    }

    /// Puts a copy of an object into the spool as a receiver does that commits by renaming.
    void commit(const std::string& object, const std::string& name) {
        fs::copy_file(m_folder / object, m_folder / "spool/incoming/.new");
        fs::rename(m_folder / "spool/incoming/.new", in("incoming/" + name));
    }
    std::string in(const std::string& name) const { return m_folder / "spool/" + name; }
    bool has(const std::string& name) const { return fs::exists(fs::symlink_status(in(name))); }
    std::vector<std::string> events() const {
        std::vector<std::string> lines;
        std::istringstream text(readFile(in("events.jsonl")));
        for (std::string line; std::getline(text, line);)
            lines.push_back(line);
        return lines;
    }
    static std::string field(const std::string& line, const std::string& name) {
        const size_t at = line.find('"' + name + "\":\"");
        return at == std::string::npos
                   ? ""
                   : line.substr(at + name.size() + 4,
                                 line.find('"', at + name.size() + 4) - at - name.size() - 4);
    }
    std::vector<std::string> words(std::initializer_list<std::string> more = {}) const {
        std::vector<std::string> all{"spool", "--settle", "0.2", m_folder / "spool"};
        all.insert(all.end(), more);
        return all;
    }
    int health() { return runProgram(VINTAK_BINARY, {"spool", "--health"}, m_daemon.environment()).status; }
    size_t filesBelow(const std::string& name) const {
        const fs::recursive_directory_iterator files(in(name));
        return static_cast<size_t>(
            std::count_if(begin(files), end(files), [](const auto& entry) { return !entry.is_directory(); }));
    }

    DaemonProcess m_daemon;
    TemporaryFolder m_folder;
};

}  // namespace

TEST_F(SpoolTest, ConvertsWhatIsWholeOncePerVersion) {
    RunningProgram spool(VINTAK_BINARY, words(), m_daemon.environment());
    ASSERT_TRUE(eventually([&] { return health() == 0; }));
    commit("two", "a.dcm");
    ASSERT_TRUE(eventually([&] { return has("done/a.dcm"); }));
    EXPECT_TRUE(has("results/a/object.desc") && has("results/a/object_2.raw"));

    // Written in place, with a long pause in the middle: never taken before it is closed.
    const std::string bytes = readFile(m_folder / "one");
    {
        std::ofstream file(in("incoming/slow.dcm"), std::ios::binary);
        file << bytes.substr(0, bytes.size() / 2) << std::flush;
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        EXPECT_TRUE(has("incoming/slow.dcm") && !has("results/slow"));
        file << bytes.substr(bytes.size() / 2);
    }
    ASSERT_TRUE(eventually([&] { return has("done/slow.dcm"); }));

    // Sent again with one frame: the results of the earlier version are all gone.
    commit("one", "a.dcm");
    ASSERT_TRUE(eventually([&] { return events().size() == 3; }));
    EXPECT_TRUE(has("results/a/object_1.raw") && !has("results/a/object_2.raw"));
    const auto lines = events();
    EXPECT_EQ(field(lines[0], "name"), "a.dcm");
    EXPECT_EQ(field(lines[2], "name"), "a.dcm");
    EXPECT_NE(field(lines[0], "version"), field(lines[2], "version"));
    EXPECT_EQ(field(lines[1], "result"), "converted");
    for (const char* uid : {"study", "series", "object"})
        EXPECT_EQ(field(lines[0], uid).find_first_not_of("0123456789."), std::string::npos) << lines[0];
    EXPECT_FALSE(field(lines[0], "object").empty());
    EXPECT_TRUE(contains(lines[2], "results/a/object_1.raw\",\"size\":512}"));
    EXPECT_EQ(spool.stop(SIGTERM), 0);
    EXPECT_EQ(health(), 3);
    EXPECT_EQ(filesBelow("results/.partial") + filesBelow("working") + filesBelow("incoming"), 0U);
}

TEST_F(SpoolTest, HostileNamesAndFilesAreSetAsideAndLeaveNoTrace) {
    const std::string outside = m_folder / "outside", odd = "a\nb;touch '\"$(x)`.dcm";
    writeFile(outside, "precious");
    writeFile(m_folder / "bad", "not an object");
    commit("one", odd);
    commit("one", "-rf.dcm");
    commit("bad", "bad.dcm");
    fs::create_symlink(outside, in("incoming/link.dcm"));
    fs::create_symlink("../../outside", in("incoming/priority/link.dcm"));
    mkfifo(in("incoming/pipe.dcm").c_str(), 0666);
    fs::create_directory(in("incoming/folder.dcm"));
    writeFile(in("incoming/.hidden"), "temporary");
    writeFile(in("incoming/x.part"), "temporary");
    const ProgramResult result =
        runProgram(VINTAK_BINARY, {"spool", m_folder / "spool", "--settle", "0", "--until-empty"},
                   m_daemon.environment());
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(has("done/" + odd) && has("results/" + odd.substr(0, odd.size() - 4) + "/object.desc"));
    EXPECT_TRUE(has("done/-rf.dcm") && has("failed/bad.dcm") && has("failed/pipe.dcm") &&
                has("failed/link.dcm.1"));
    EXPECT_TRUE(contains(readFile(in("failed/link.dcm.reason.txt")), "cause: is a symbolic link\n"));
    EXPECT_TRUE(contains(readFile(in("failed/bad.dcm.reason.txt")), "class: object\n"));
    EXPECT_TRUE(has("incoming/.hidden") && has("incoming/x.part") && has("incoming/folder.dcm"));
    EXPECT_EQ(readFile(outside), "precious");
    ASSERT_EQ(events().size(), 6U);
    EXPECT_EQ(field(events()[0], "name"), "link.dcm") << "the priority folder comes first";
    // Nothing but the results of the two.
    size_t folders = 0;
    for (const auto& entry : fs::directory_iterator(in("results")))
        folders += entry.path().filename() == ".partial" ? 0 : 1;
    EXPECT_EQ(folders, 2U);
}

TEST_F(SpoolTest, KeepsAllWithoutADaemonAndThroughItsOwnDeath) {
    m_daemon.stop(SIGTERM);
    {
        RunningProgram spool(VINTAK_BINARY, words({"--jobs", "2"}), m_daemon.environment());
        for (const char* name : {"a.dcm", "b.dcm", "c.dcm"})
            commit("one", name);
        ASSERT_TRUE(eventually([&] { return health() == 1; }));
        EXPECT_EQ(events().size(), 0U);
        spool.stop(SIGKILL);
    }
    EXPECT_EQ(filesBelow("incoming") + filesBelow("working"), 3U);
    EXPECT_GE(filesBelow("working"), 1U);
    RunningProgram again(VINTAK_BINARY, words({"--delete-done", "--sync"}), m_daemon.environment());
    // Seen without a daemon once more, which then comes.
    ASSERT_TRUE(eventually([&] {
        return contains(readFile(m_daemon.folder() / "vintakd-spool.prom"), "vintakd_spool_paused 1\n");
    }));
    m_daemon.start();
    ASSERT_TRUE(eventually([&] { return events().size() == 3 && filesBelow("working") == 0; }));
    for (const char* name : {"a", "b", "c"})
        EXPECT_TRUE(has(std::string("results/") + name + "/object.desc")) << name;
    EXPECT_EQ(again.stop(SIGTERM), 0);
    EXPECT_EQ(events().size(), 3U);
    EXPECT_EQ(filesBelow("done") + filesBelow("failed") + filesBelow("incoming"), 0U);
}
