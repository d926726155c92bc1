#include <signal.h>

#include "tests/shared/daemon_process.h"
#include "tools/phantom/phantomobject.h"

namespace fs = std::filesystem;

namespace {

/// An archive of small objects, and `vintak backfill` over it.
class BackfillTest : public testing::Test {
protected:
    BackfillTest() {
        writePhantom(m_folder / "object", {1, 256});
        for (int study = 0; study < 3; ++study)
            fs::create_directories(archive("s" + std::to_string(study)));
    }

    std::string archive(const std::string& name) const { return m_folder / "archive/" + name; }
    std::string results(const std::string& name) const { return m_folder / "results/" + name; }
    void fill(int objects) {
        for (int i = 0; i < objects; ++i)
            fs::copy_file(m_folder / "object",
                          archive("s" + std::to_string(i % 3) + "/" + std::to_string(i) + ".dcm"));
    }
    std::vector<std::string> words(const std::string& action, std::vector<std::string> more = {}) const {
        more.insert(more.begin(), {"backfill", action, "--ledger", m_folder / "ledger"});
        return more;
    }
    ProgramResult call(const std::string& action, const std::vector<std::string>& more = {}) {
        return runProgram(VINTAK_BINARY, words(action, more), m_daemon.environment());
    }
    ProgramResult run(const std::vector<std::string>& more = {}) {
        return runProgram(VINTAK_BINARY, runWords(more), m_daemon.environment());
    }
    std::vector<std::string> runWords(std::vector<std::string> more = {}) const {
        more.insert(more.begin(), {m_folder / "archive", "-o", m_folder / "results"});
        return words("run", more);
    }
    int64_t status(const std::string& of) {
        const std::string text = call("status", {"--json"}).output;
        const size_t at = text.find('"' + of + "\":{\"objects\":");
        return at == std::string::npos ? -1 : std::strtoll(text.c_str() + at + of.size() + 14, nullptr, 10);
    }
    size_t converted() const {
        size_t count = 0;
        std::error_code ignored;
        for (fs::recursive_directory_iterator entry(m_folder / "results", ignored), end; entry != end;
             entry.increment(ignored))
            if (entry->path().filename() == ".partial")
                entry.disable_recursion_pending();
            else if (entry->path().filename() == "object.desc")
                ++count;
        return count;
    }
    size_t conversions() const { return m_daemon.countInLog("kind=convert"); }

    DaemonProcess m_daemon{{"--servers", "2"}};
    TemporaryFolder m_folder;
};

}  // namespace

TEST_F(BackfillTest, ConvertsAnArchiveAndTellsWhatBecameOfIt) {
    fill(6);
    writeFile(archive("s0/readme.txt"), "no object");
    writeFile(archive("s1/bad.dcm"), readFile(m_folder / "object").substr(0, 300));
    fs::copy_file(m_folder / "object", archive("s2/odd\nname"));
    fs::copy_file(m_folder / "object", archive("s2/2"));  // beside "2.dcm"
    ProgramResult result = run();
    EXPECT_EQ(result.status, 1) << result.errors;
    EXPECT_EQ(converted(), 7U);
    EXPECT_TRUE(fs::exists(results("s1/1/object_1.raw")) && fs::exists(results("s2/odd\nname/object.desc")));
    EXPECT_TRUE(fs::is_empty(results(".partial")));
    result = call("status");
    EXPECT_TRUE(contains(result.output, "failed, object: 1 ")) << result.errors;
    EXPECT_EQ(status("done"), 7);
    EXPECT_EQ(status("passed"), 1);
    result = call("failures");
    EXPECT_TRUE(contains(result.output, "s1/bad.dcm: object: "));
    EXPECT_TRUE(contains(result.output, "s2/2.dcm: request: "));

    // What was mended, what is new and what was changed; and nothing else once more.
    const size_t before = conversions();
    fs::copy_file(m_folder / "object", archive("s1/bad.dcm"), fs::copy_options::overwrite_existing);
    fs::remove(archive("s2/2.dcm"));
    fs::copy_file(m_folder / "object", archive("s0/new.dcm"));
    writePhantom(archive("s0/0.dcm"), {2, 16});
    EXPECT_TRUE(contains(call("retry", {"--class", "request"}).output, "1 objects"));
    result = run({"--relist"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(conversions(), before + 3);
    EXPECT_TRUE(fs::exists(results("s0/0/object_2.raw")));
    EXPECT_EQ(call("check").status, 0);
    EXPECT_EQ(
        runProgram(VINTAK_BINARY, words("run", {m_folder / "other", "-o", m_folder / "results"})).status, 4);
    EXPECT_EQ(call("retry", {"--class", "bad"}).status, 2);
    for (const auto& [wrong, status] : {std::pair{m_folder / "archive", 2}, {m_folder / "object/r", 4}})
        EXPECT_EQ(runProgram(VINTAK_BINARY, {"backfill", "run", m_folder / "archive", "-o", wrong, "--ledger",
                                             m_folder / "new"})
                      .status,
                  status);
    result = runProgram(VINTAK_BINARY, {"backfill", "run", m_folder / "mistyped", "-o", m_folder / "results",
                                        "--ledger", m_folder / "new"});
    EXPECT_EQ(result.status, 4);
    EXPECT_TRUE(contains(result.errors, "mistyped: No such file or directory")) << result.errors;
    EXPECT_FALSE(fs::exists(m_folder / "new"));
}

TEST_F(BackfillTest, GoesOnAfterKillsAndRepeatsAtMostABatch) {
    constexpr int kObjects = 150, kBatch = 10;
    fill(kObjects);
    int kills = 0;
    for (size_t target = 20; target < 120; target += 50, ++kills) {
        RunningProgram backfill(VINTAK_BINARY, runWords({"--batch", std::to_string(kBatch)}),
                                m_daemon.environment());
        ASSERT_TRUE(eventually([&] { return conversions() >= target; }));
        EXPECT_EQ(backfill.stop(SIGKILL), -1);
    }
    {
        // Asked to end, it repeats nothing and leaves no claims.
        RunningProgram backfill(VINTAK_BINARY, runWords(), m_daemon.environment());
        ASSERT_TRUE(eventually([&] { return conversions() >= 125; }));
        EXPECT_EQ(backfill.stop(SIGTERM), 130);
        EXPECT_TRUE(contains(call("status", {"--json"}).output, "\"workers\":[]"));
    }
    // The rest by two at once, of a list.
    std::string list;
    for (const auto& entry : fs::recursive_directory_iterator(m_folder / "archive"))
        if (entry.is_regular_file()) list += entry.path().string() + "\n";
    writeFile(m_folder / "list", list);
    RunningProgram other(VINTAK_BINARY, runWords(), m_daemon.environment());
    EXPECT_EQ(run({"--files-from", m_folder / "list"}).status, 0);
    EXPECT_EQ(other.wait(), 0);
    EXPECT_EQ(converted(), static_cast<size_t>(kObjects));
    EXPECT_EQ(status("done"), kObjects);
    EXPECT_LE(conversions(), static_cast<size_t>(kObjects + kills * kBatch));
}

TEST_F(BackfillTest, WaitsForOperatorDaemonAndHours) {
    fill(9);
    const auto notes = [&](const std::string& text) {
        return eventually([&] { return call("status").output.find(text) != std::string::npos; });
    };
    ASSERT_EQ(run({"--files-from", "/dev/null"}).status, 0);  // an empty ledger
    ASSERT_EQ(call("pause").status, 0);
    RunningProgram paused(VINTAK_BINARY, runWords({"--relist"}), m_daemon.environment());
    ASSERT_TRUE(eventually([&] { return status("waiting") == 9; }));
    EXPECT_TRUE(contains(call("status").output, "paused by an operator"));
    EXPECT_EQ(conversions(), 0U);
    m_daemon.stop(SIGTERM);
    ASSERT_EQ(call("resume").status, 0);
    ASSERT_TRUE(notes("pausing: no daemon is running"));
    m_daemon.start();
    EXPECT_EQ(paused.wait(), 0);
    EXPECT_EQ(converted(), 9U);

    // An hour that is not this one, by the clock of whoever asks.
    writePhantom(archive("s0/0.dcm"), {2, 16});
    const std::time_t now = std::time(nullptr) + 7200;
    std::tm parts{};
    localtime_r(&now, &parts);
    char hours[32];
    (void)snprintf(hours, sizeof hours, "%02d:00-%02d:59", parts.tm_hour, parts.tm_hour);
    RunningProgram later(VINTAK_BINARY, runWords({"--relist", "--hours", hours}), m_daemon.environment());
    ASSERT_TRUE(notes("out of its hours"));
    EXPECT_EQ(later.stop(SIGTERM), 130);
    EXPECT_FALSE(fs::exists(results("s0/0/object_2.raw")));

    // A dry run counts, converts a few, and leaves nothing.
    const ProgramResult dry = run({"--dry-run", "--sample", "3", "--json"});
    EXPECT_TRUE(contains(dry.output, "\"objects\":9,")) << dry.errors;
    EXPECT_FALSE(contains(dry.output, "\"written\":0}"));
    for (const auto& entry : fs::directory_iterator(m_folder / "results"))
        EXPECT_FALSE(entry.path().filename().string().starts_with(".dry-run")) << entry.path();
}
