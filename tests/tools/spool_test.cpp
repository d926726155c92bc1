#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <future>

#include "hsutils/Utils.h"
#include "tests/shared/testing.h"
#include "tools/feeding/SpoolWork.h"
#include "tools/feeding/WorkerPool.h"
#include "tools/spool/Backlog.h"
#include "tools/spool/Feeder.h"

// What the feeder decides, with work that comes out as a test wants it.

namespace {

/// Answers by the object's name, and notes who came.
class ScriptedWork : public SpoolWork {
public:
    std::map<std::string, std::vector<WorkResult>> answers;  ///< one a try; then done
    std::vector<std::string> came;

    WorkResult run(const SpoolObject& object) override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        came.push_back(object.name);
        auto& left = answers[object.name];
        if (left.empty()) return {.kind = WorkResult::Kind::done};
        WorkResult result = left.front();
        left.erase(left.begin());
        return result;
    }
    long timesOf(const std::string& name) const { return std::count(came.begin(), came.end(), name); }

private:
    std::mutex m_mutex;
};

std::vector<std::string> namesOf(const Backlog& backlog) {
    std::vector<std::string> names;
    for (const Waiting& waiting : backlog.names())
        names.push_back(waiting.name);
    return names;
}

}  // namespace

TEST(Backlog, KeepsTheOldestAndKnowsThatItLetOthersGo) {
    Backlog backlog(3);
    for (const long second : {5, 1, 4})
        backlog.add(std::to_string(second), {second, 0});
    backlog.add("4", {2, 0});  // came again, older
    EXPECT_EQ(namesOf(backlog), (std::vector<std::string>{"1", "4", "5"}));
    EXPECT_FALSE(backlog.isCut());
    backlog.add("3", {3, 0});
    EXPECT_EQ(namesOf(backlog), (std::vector<std::string>{"1", "4", "3"}));
    EXPECT_TRUE(backlog.isCut());
    // "5" was let go: what is younger than it must not come before it, though there is room again.
    backlog.remove("1");
    backlog.add("9", {9, 0});
    EXPECT_EQ(namesOf(backlog), (std::vector<std::string>{"4", "3"}));
    backlog.remove("3");
    backlog.remove("4");
    backlog.add("9", {9, 0});
    EXPECT_TRUE(backlog.isEmpty());
}

TEST(WorkerPool, GivesBackWhatWasPutAheadAndNotBegun) {
    class SlowWork : public SpoolWork {
    public:
        std::promise<void> begun, end;
        WorkResult run(const SpoolObject& /*object*/) override {
            begun.set_value();  // a second time it would throw
            end.get_future().wait();
            return {.kind = WorkResult::Kind::done};
        }
    } work;
    WorkerPool pool(work, 1, 2);
    for (const char* name : {"1", "2", "3"}) {
        EXPECT_TRUE(pool.isFree());
        pool.give({.name = name, .path = name});
    }
    EXPECT_FALSE(pool.isFree());
    work.begun.get_future().wait();
    const std::vector<SpoolObject> back = pool.takeBack();
    ASSERT_EQ(back.size(), 2U);
    EXPECT_EQ(back[0].name + back[1].name, "23");
    EXPECT_EQ(pool.atWork(), 1U);
    work.end.set_value();
    pollfd bell{.fd = pool.descriptor(), .events = POLLIN, .revents = 0};
    EXPECT_EQ(poll(&bell, 1, 60'000), 1);
    const std::vector<FinishedWork> finished = pool.take();
    ASSERT_EQ(finished.size(), 1U);
    EXPECT_EQ(finished[0].object.name, "1");
    EXPECT_EQ(finished[0].result.kind, WorkResult::Kind::done);
    EXPECT_EQ(pool.atWork(), 0U);
}

TEST(WorkerPool, SaysThatThereAreNoThreadsForIt) {
    if (kSanitized) GTEST_SKIP() << "the sanitizer itself needs memory for a thread";
    ScriptedWork work;
    const rlimit none{0, 0};
    EXPECT_EXIT(
        {
            if (setrlimit(RLIMIT_AS, &none) != 0) _exit(1);
            try {
                const WorkerPool pool(work, 1000);
            } catch (const std::exception&) {
                _exit(7);
            }
            _exit(0);
        },
        testing::ExitedWithCode(7), "");
}

TEST(SpoolFolders, TakeNothingFromBehindALink) {
    const TemporaryFolder folder;
    const SpoolFolders folders(folder / "spool", true);
    writeFile(folder / "spool/done/precious", "done");
    std::filesystem::rename(folders.priority(), folders.incoming() + "/moved");
    std::filesystem::create_symlink("../done", folders.priority());
    EXPECT_FALSE(folders.take("incoming/priority", "precious"));
    EXPECT_TRUE(std::filesystem::exists(folder / "spool/done/precious"));
    EXPECT_THROW(IncomingFolder(folders.priority(), std::chrono::seconds(0)), std::runtime_error);
}

TEST(Feeder, IsAloneAndTakesWhatWasLinkedWhateverItsNameAndTheLastLine) {
    const TemporaryFolder folder;
    ScriptedWork work;
    const std::string spool = folder / "spool", longest(255, 'x');
    std::filesystem::create_directories(spool + "/incoming/priority");
    writeFile(spool + "/events.jsonl", "{\"half");
    work.answers[longest] = {{.errorClass = ErrorClass::object, .cause = "bad"}};
    const FeederOptions options{.folder = spool, .settle = std::chrono::milliseconds(50)};
    const auto say = [](const std::string&) {};
    Feeder feeder(options, work, say);
    EXPECT_THROW(Feeder(options, work, say), std::runtime_error);
    // Nobody ever closes what was linked to its name and has lost its other one.
    for (const std::string& name : {std::string("linked"), longest}) {
        writeFile(folder / "elsewhere", name);
        ASSERT_EQ(link((folder / "elsewhere").c_str(), (spool + "/incoming/" + name).c_str()), 0);
        std::filesystem::remove(folder / "elsewhere");
    }
    const std::string kept = spool + "/failed/" + std::string(239, 'x');
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    feeder.run([&] {
        return std::chrono::steady_clock::now() > end ||
               (std::filesystem::exists(spool + "/done/linked") && std::filesystem::exists(kept));
    });
    EXPECT_TRUE(std::filesystem::exists(spool + "/done/linked"));
    EXPECT_EQ(readFile(kept), longest);
    EXPECT_TRUE(contains(readFile(kept + ".reason.txt"), longest + "\nclass: object\n"));
    const std::string events = readFile(spool + "/events.jsonl");
    EXPECT_TRUE(events.starts_with("{\"half\n{\"schema\":1,"));
    EXPECT_EQ(std::count(events.begin(), events.end(), '\n'), 3);
}

TEST(Feeder, TriesAgainWhatMayDoBetterAndNothingElse) {
    const TemporaryFolder folder;
    const auto failure = [](ErrorClass kind) {
        return WorkResult{.kind = WorkResult::Kind::failed, .errorClass = kind, .cause = nameOf(kind)};
    };
    ScriptedWork work;
    work.answers["bad"] = {failure(ErrorClass::object)};
    work.answers["silent"] = {failure(ErrorClass::exchange)};
    work.answers["deadly"] = {failure(ErrorClass::crash), failure(ErrorClass::crash)};
    work.answers["full"] = {failure(ErrorClass::output), {.kind = WorkResult::Kind::unreachable}};
    work.answers["growing"] = {{.kind = WorkResult::Kind::changed}};
    std::filesystem::create_directories(folder / "spool/incoming/priority");
    for (const auto& [name, answers] : work.answers)
        writeFile(folder / "spool/incoming/" + name, name);
    writeFile(folder / "spool/incoming/priority/urgent", "urgent");
    const FeederOptions options{.folder = folder / "spool",
                                .settle = std::chrono::seconds(0),
                                .jobs = 1,
                                .tries = 2,
                                .metrics = folder / "figures"};
    std::string figures;
    {
        Feeder feeder(options, work, [](const std::string&) {});
        feeder.runUntilEmpty([] { return false; });
        figures = readFile(folder / "figures");
    }
    EXPECT_EQ(work.came.front(), "urgent");
    for (const auto& [name, times] :
         std::map<std::string, long>{{"bad", 1}, {"silent", 2}, {"deadly", 2}, {"full", 3}, {"growing", 2}})
        EXPECT_EQ(work.timesOf(name), times) << name;
    for (const char* name :
         {"failed/bad", "failed/deadly", "done/silent", "done/full", "done/growing", "done/urgent"})
        EXPECT_TRUE(std::filesystem::exists(folder / "spool/" + name)) << name;
    EXPECT_TRUE(contains(figures, "vintakd_spool_done_total 4\n"));
    EXPECT_TRUE(contains(figures, "vintakd_spool_failed_total{class=\"crash\"} 1\n"));
    EXPECT_FALSE(std::filesystem::exists(folder / "figures"));
}
