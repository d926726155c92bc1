// Whoever is killed while a pack is written, and where the disk is full: an index is there only where all is
// that it names, and the next run clears what was left. VINTAKD_TEST_ROUNDS=100 and VINTAKD_TEST_SEED by
// hand.
#include <sys/resource.h>
#include <sys/wait.h>

#include <map>
#include <random>

#include "pack/PackError.h"
#include "pack/PackIndex.h"
#include "tests/fault/processes.h"
#include "tools/phantom/phantomobject.h"

namespace {

namespace fs = std::filesystem;
using Files = std::map<std::string, std::string>;

class PackStorm : public testing::Test {
protected:
    enum Way { whole, spread, series, kWays };
    enum Victim { tool, servant, daemon, disk, kVictims };

    PackStorm() {
        writePhantom(m_folder / "o.dcm", {24, 96});
        fs::create_directory(m_folder / "in");
        EXPECT_EQ(run({"convert", m_folder / "o.dcm", "-o", m_folder / "in/", "--parts", "1"}), 0);
        for (int way = 0; way < kWays; ++way) {
            begin();
            const auto start = Clock::now();
            EXPECT_EQ(run(words(static_cast<Way>(way))), 0);
            m_longest[way] = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
            m_expected[way] = files();
        }
    }

    std::vector<std::string> words(Way way) const {
        if (way == series) return {"pack", "-o", m_folder / "out/o", m_folder / "in/o.desc"};
        std::vector<std::string> words{"convert", m_folder / "o.dcm", "-o", m_folder / "out/", "--packed"};
        words.insert(words.end(), {"--parts", way == spread ? "2" : "1"});
        return words;
    }
    int run(const std::vector<std::string>& words) const {
        return runProgram(VINTAK_BINARY, words, m_daemon.environment()).status;
    }
    void begin() const {
        fs::remove_all(m_folder / "out");
        fs::create_directory(m_folder / "out");
    }
    Files files() const {
        Files files;
        for (const auto& entry : fs::recursive_directory_iterator(m_folder / "out"))
            files[fs::relative(entry.path(), m_folder / "out")] =
                entry.is_regular_file() ? readFile(entry.path()) : "/";
        return files;
    }

    /// The tool at its work; `limit`: bytes that a file of its may have, 0 for any number.
    pid_t startTool(Way way, uint64_t limit) const {
        const pid_t pid = fork();
        if (pid != 0) return pid;
        // A pipe's end and the daemon's log stay as they are; the tool says what it says to nobody.
        const rlimit most{limit, RLIM_INFINITY};
        signal(SIGXFSZ, SIG_IGN);
        if (limit > 0) setrlimit(RLIMIT_FSIZE, &most);
        _exit(run(words(way)) == 0 ? 0 : 1);
    }
    void strike(Victim victim, pid_t toolParent) {
        if (victim == daemon) m_daemon.stop(SIGKILL);
        if (victim == servant) m_daemon.signalServant(SIGKILL, m_random() % 2);
        if (victim != tool) return;
        const std::string children =
            "/proc/" + std::to_string(toolParent) + "/task/" + std::to_string(toolParent) + "/children";
        if (const int pid = std::atoi(readFile(children).c_str()); pid > 0) kill(pid, SIGKILL);
    }
    /// A limit for the files of each servant that there is just now.
    void limitServants(rlim_t bytes) {
        for (size_t channel = 0; channel < 2; ++channel) {
            rlimit limit{};
            const pid_t pid = m_daemon.servantPid(channel);
            if (pid <= 0 || prlimit(pid, RLIMIT_FSIZE, nullptr, &limit) != 0) continue;
            limit.rlim_cur = std::min(bytes, limit.rlim_max);
            EXPECT_EQ(prlimit(pid, RLIMIT_FSIZE, &limit, nullptr), 0);
        }
    }
    /// Runs the tool to its end. What a killed one asked for goes on meanwhile: a whole pack's next writer
    /// overtakes it, but parts of it may be in the way of the same parts.
    int runAgain(Way way) const {
        int status = run(words(way));
        for (int i = 0; i < 3 && status != 0 && way == spread; ++i)
            status = run(words(way));
        return status;
    }
    void expectWholeOrNone(const std::string& what) const {
        if (!fs::exists(m_folder / "out/o.index")) return;
        EXPECT_NO_THROW(pack::PackIndex(m_folder / "out/o.index").walk({})) << what;
    }
    void disturb(Way way, Victim victim) {
        uint64_t largest = 0;
        for (const auto& [name, bytes] : m_expected[way])
            largest = std::max<uint64_t>(largest, bytes.size());
        const uint64_t limit = victim == disk ? 1 + m_random() % largest : 0;
        if (limit > 0) limitServants(limit);
        const pid_t parent = startTool(way, way == series ? limit : 0);
        if (victim != disk) {
            const auto most = static_cast<unsigned>(m_longest[way].count());
            usleep(m_random() % most);
            strike(victim, parent);
        }
        expectWholeOrNone("at once");
        int status = 0;
        ASSERT_EQ(waitpid(parent, &status, 0), parent);
        expectWholeOrNone("after the tool");
        if (victim == daemon) m_daemon.start();
        if (limit > 0) limitServants(RLIM_INFINITY);
    }

    static unsigned given(const char* name, unsigned otherwise) {
        const char* text = getenv(name);
        return text ? static_cast<unsigned>(std::stoul(text)) : otherwise;
    }

    mutable DaemonProcess m_daemon{{"--servers", "2"}};
    TemporaryFolder m_folder;
    std::mt19937 m_random{given("VINTAKD_TEST_SEED", 17)};
    std::chrono::microseconds m_longest[kWays];
    Files m_expected[kWays];
};

}  // namespace

TEST_F(PackStorm, ThereIsAWholePackOrNoneAndTheNextRunClearsUp) {
    for (unsigned round = 0, rounds = given("VINTAKD_TEST_ROUNDS", 12); round < rounds; ++round) {
        const auto way = static_cast<Way>(round % kWays);
        const auto victim = static_cast<Victim>(round / kWays % kVictims);
        SCOPED_TRACE("round " + std::to_string(round));
        begin();
        disturb(way, victim);
        EXPECT_EQ(runAgain(way), 0);
        expectWholeOrNone("in the end");
        EXPECT_TRUE(eventually([&] { return files() == m_expected[way]; }));
    }
}
