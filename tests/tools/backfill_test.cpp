#include <atomic>
#include <ctime>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "tests/tools/ledger_fixture.h"
#include "tools/backfill/ArchiveWork.h"
#include "tools/backfill/Backfill.h"
#include "tools/backfill/Estimate.h"
#include "tools/backfill/LedgerReport.h"

namespace fs = std::filesystem;

namespace {

/// Answers by the object's name, and counts who came.
class ScriptedWork : public SpoolWork {
public:
    std::map<std::string, std::vector<WorkResult>> answers;  ///< one a try; then done
    std::map<std::string, int> came;
    SpoolObject last;

    WorkResult run(const SpoolObject& object) override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++came[object.name];
        last = object;
        auto& left = answers[object.name];
        if (left.empty()) return {.kind = WorkResult::Kind::done, .outputs = {{"result", 7}}};
        WorkResult result = left.front();
        left.erase(left.begin());
        return result;
    }

private:
    std::mutex m_mutex;
};

WorkResult failure(ErrorClass kind, const std::string& cause) {
    return {.kind = WorkResult::Kind::failed, .errorClass = kind, .cause = cause};
}

/// Notes every file as "folder/name".
class Notes : public ArchiveVisitor {
public:
    explicit Notes(const Shard& shard) : m_shard(shard) {}
    std::vector<std::string> all;

    bool entersBelow(const std::string& folder) override { return m_shard.mayOwnBelow(folder); }
    bool wantsFiles(const std::string& folder) override { return m_shard.owns(folder); }
    void files(const std::string& folder, std::vector<ListedFile> found, bool /*isWhole*/) override {
        for (const ListedFile& file : found)
            all.push_back(folder + "/" + file.name);
    }
    void unreadable(const std::string& folder, const std::string& /*cause*/) override {
        all.push_back(folder);
    }
    bool stops() override { return false; }

private:
    Shard m_shard;
};

}  // namespace

TEST(Shard, PartsAnArchiveByItsStudies) {
    const TemporaryFolder folder;
    const std::string archive = folder / "archive";
    for (int study = 0; study < 40; ++study) {
        const std::string name = archive + "/p" + std::to_string(study % 7) + "/s" + std::to_string(study);
        fs::create_directories(name + "/series");
        for (const char* file : {"/a", "/series/b", "/series/c"})
            writeFile(name + file, "x");
    }
    writeFile(archive + "/top", "x");
    fs::create_directory_symlink(archive, archive + "/p0/loop");
    Notes whole({});
    walkArchive(archive, "", whole);
    EXPECT_EQ(whole.all.size(), 121U);
    for (const uint32_t depth : {0U, 1U, 2U}) {
        std::vector<std::string> joined;
        std::map<std::string, std::set<uint32_t>> shardsOfStudy;
        for (uint32_t index = 0; index < 3; ++index) {
            Notes walked({index, 3, depth}), listed({index, 3, depth});
            walkArchive(archive, "", walked);
            size_t next = 0;
            std::string refused;
            const auto names = [&](std::string& name) {
                if (next == whole.all.size()) return false;
                name = whole.all[next++];
                name = next % 2 == 0 ? archive + "/" + name : "./" + name;  // both ways to name one
                return true;
            };
            EXPECT_EQ(readArchiveList(archive, names, listed, refused), 0U) << refused;
            std::sort(listed.all.begin(), listed.all.end());
            for (const std::string& path : walked.all) {
                joined.push_back(path);
                if (depth > 0)
                    shardsOfStudy[path.substr(0, path.find('/', depth == 2 ? 3 : 1))].insert(index);
            }
            std::sort(walked.all.begin(), walked.all.end());
            EXPECT_EQ(walked.all, listed.all) << depth;
            EXPECT_GT(walked.all.size(), 10U) << depth;
        }
        std::sort(joined.begin(), joined.end());
        std::vector<std::string> expected = whole.all;
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(joined, expected) << depth;
        for (const auto& [study, shards] : shardsOfStudy)
            EXPECT_EQ(shards.size(), 1U) << study;
    }
    // Ledgers of hosts that were set up years apart must agree.
    EXPECT_EQ(stableHash("p1/s1"), 0xE5F12E0C2DBD71A8U);
    for (const char* text : {"3/3", "0/0", "1", "-1/3", "1/3x", "", "a/b"})
        EXPECT_THROW(Shard::parse(text, 0), std::invalid_argument) << text;
}

TEST(ArchiveList, RefusesNamesThatLeadOut) {
    const TemporaryFolder folder;
    Notes notes({});
    std::vector<std::string> names{"a/../../x", "/etc/passwd", folder.path() + "/ok", "..", "a/./b/../c", ""};
    size_t next = 0;
    std::string refused;
    const auto source = [&](std::string& name) {
        if (next == names.size()) return false;
        name = names[next++];
        return true;
    };
    EXPECT_EQ(readArchiveList(folder.path(), source, notes, refused), 4U);
    EXPECT_EQ(refused, "a/../../x");
    EXPECT_EQ(notes.all, (std::vector<std::string>{"/ok", "a/c"}));
}

TEST(Hours, HoldOverMidnight) {
    const Hours night("20:00-06:00,12:00-13:00");
    const std::map<int, bool> expected{{0, true},   {359, true},  {360, false},  {719, false}, {720, true},
                                       {779, true}, {780, false}, {1199, false}, {1200, true}, {1439, true}};
    for (const auto& [minute, holds] : expected)
        EXPECT_EQ(night.holdAt(minute), holds) << minute;
    EXPECT_DOUBLE_EQ(night.share(), 11 / 24.0);
    EXPECT_TRUE(Hours().holdAt(700));
    for (const char* text :
         {"", "20:00", "25:00-06:00", "20:60-06:00", "20:00-20:00", "20:00-06:00x", "-1:00-06:00"})
        EXPECT_THROW(Hours{text}, std::invalid_argument) << text;
}

TEST(Backfill, WorksAnArchiveOffAndSaysWhatFailed) {
    const TemporaryFolder folder;
    const std::string archive = folder / "archive";
    fs::create_directories(archive + "/s");
    ScriptedWork work;
    work.answers["s/bad"] = {failure(ErrorClass::object, "Error: " + archive + "/s/bad: broken")};
    work.answers["s/worse"] = {failure(ErrorClass::object, "Error: " + archive + "/s/worse: broken")};
    work.answers["s/deadly"] = {failure(ErrorClass::crash, "died"), failure(ErrorClass::crash, "died")};
    work.answers["s/later"] = {failure(ErrorClass::memory, "none")};
    work.answers["s/full"] = {failure(ErrorClass::output, "full"), {.kind = WorkResult::Kind::unreachable}};
    work.answers["s/text"] = {{.kind = WorkResult::Kind::passed}};
    for (const auto& [name, answers] : work.answers)
        writeFile(archive + "/" + name, name);
    std::string said;
    const auto say = [&](const std::string& text) { said += text + "\n"; };
    const auto runs = [&] {
        LedgerHead head = headIn(folder);
        Ledger ledger(openLedger(folder / "ledger", head));
        const BackfillOptions options{.archive = archive, .jobs = 2, .batch = 4, .tries = 2};
        const Listing listing(
            {.ledger = folder / "ledger", .archive = archive, .results = "", .shard = {}},
            [](const std::string&) {}, [] { return false; });
        Backfill(options, ledger, listing, work, say).run([] { return false; });
        expectTotalsOfRows(ledger.database());
        return reportOf(ledger.database(), std::time(nullptr));
    };
    LedgerReport report = runs();
    EXPECT_EQ(report.done.objects, 2) << textOf(report);
    EXPECT_EQ(report.done.written, 14);
    EXPECT_EQ(report.passed.objects, 1);
    ASSERT_EQ(report.causes.size(), 2U);
    EXPECT_EQ(report.causes[0].text, "Error: FILE: broken");
    EXPECT_EQ(report.causes[0].objects, 2);
    EXPECT_EQ(report.causes[1].errorClass, "crash");
    for (const auto& [name, times] : std::map<std::string, int>{
             {"s/bad", 1}, {"s/worse", 1}, {"s/deadly", 2}, {"s/later", 2}, {"s/full", 3}, {"s/text", 1}})
        EXPECT_EQ(work.came[name], times) << name;
    EXPECT_TRUE(contains(said, "pausing for 1 s: full"));

    Database ledger = ledgerIn(folder);
    std::vector<std::string> failures;
    tellFailures(ledger, "crash",
                 [&](const auto& path, const auto&, const auto&, int64_t) { failures.push_back(path); });
    EXPECT_EQ(failures, std::vector<std::string>{"s/deadly"});
    EXPECT_EQ(retryFailures(ledger, "object"), 2);
    report = runs();
    EXPECT_EQ(report.done.objects, 4);
    EXPECT_EQ(report.failed.objects, 1);
    EXPECT_EQ(work.came["s/deadly"], 2);
}

TEST(ArchiveWork, TakesNothingForGoneWhileTheArchiveIsNotThere) {
    const TemporaryFolder folder;
    const std::string archive = folder / "archive";
    fs::create_directories(archive);
    ScriptedWork inner;
    ArchiveWork work(inner, archive, true);
    const auto kind = [&] { return work.run({.name = "a", .path = archive + "/a"}).kind; };
    EXPECT_EQ(kind(), WorkResult::Kind::unreachable);
    writeFile(archive + "/b", "another");
    EXPECT_EQ(kind(), WorkResult::Kind::passed);
    writeFile(archive + "/a", "it");
    EXPECT_EQ(kind(), WorkResult::Kind::done);
    // Who works on a link works on what it leads to, which may change.
    fs::create_symlink("a", archive + "/link");
    (void)work.run({.name = "link", .path = archive + "/link"});
    EXPECT_TRUE(inner.last.isUnchanged());
    writeFile(archive + "/a", "longer");
    EXPECT_FALSE(inner.last.isUnchanged());

    // Nor does a listing come to its end that has nothing left to look at.
    fill(folder, 1);
    LedgerListing(ledgerIn(folder)).setWhole(false);
    fs::remove_all(archive);
    fs::create_directories(archive);
    Listing listing(
        {.ledger = folder / "ledger", .archive = archive, .results = "", .shard = {}},
        [](const std::string&) {}, [] { return false; });
    ASSERT_TRUE(eventually([&] { return listing.isOver(); }));
    EXPECT_TRUE(contains(listing.failure(), "nothing is in the archive " + archive));
    EXPECT_FALSE(LedgerListing(ledgerIn(folder)).isWhole());
}

TEST(Backfill, GivesNothingOutTwiceThatOthersTookAwayWhileItWasSilent) {
    const TemporaryFolder folder;
    const std::string archive = folder / "archive";
    constexpr int kObjects = 40;
    fs::create_directories(archive + "/s");
    for (int i = 0; i < kObjects; ++i)
        writeFile(archive + "/s/" + std::to_string(i), "x");
    // In the middle of an object, as another worker that finds the lease run out: this process was stopped
    // for longer, or its clock was set.
    class RobbedWork : public SpoolWork {
    public:
        explicit RobbedWork(const TemporaryFolder& folder) : m_folder(folder) {}
        std::atomic<int> twice{0};

        WorkResult run(const SpoolObject& object) override {
            {
                const std::lock_guard<std::mutex> lock(m_mutex);
                if (object.name == m_robbed) ++twice;
                if (++m_runs != 4) return {.kind = WorkResult::Kind::done};
                m_robbed = object.name;
            }
            Ledger(ledgerIn(m_folder)).heal(std::time(nullptr) + 10 * Ledger::kLease);
            for (int i = 0; i < 100 && twice == 0; ++i)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            return {.kind = WorkResult::Kind::done};
        }

    private:
        const TemporaryFolder& m_folder;
        std::mutex m_mutex;
        int m_runs = 0;
        std::string m_robbed;
    };
    RobbedWork work(folder);
    LedgerHead head = headIn(folder);
    Ledger ledger(openLedger(folder / "ledger", head));
    const BackfillOptions options{.archive = archive, .jobs = 2, .batch = 8};
    const Listing listing(
        {.ledger = folder / "ledger", .archive = archive, .results = "", .shard = {}},
        [](const std::string&) {}, [] { return false; });
    Backfill(options, ledger, listing, work, [](const std::string&) {}).run([] { return false; });
    EXPECT_EQ(work.twice, 0);
    EXPECT_EQ(ledger.count(ObjectState::done), kObjects);
    expectTotalsOfRows(ledger.database());
}

TEST(Backfill, HandsOverNoMoreThanThereIsRoomForAndFollowsWhatBecomesOfIt) {
    const TemporaryFolder folder;
    fill(folder, 7);
    ScriptedWork work;
    for (int i = 0; i < 7; ++i)
        work.answers["s/" + std::to_string(i)] = {{.kind = WorkResult::Kind::submitted}};
    size_t asked = 0;
    LedgerHead head = headIn(folder);
    Ledger ledger(openLedger(folder / "ledger", head));
    BackfillOptions options{.archive = folder.path(), .jobs = 2};
    options.room = [&]() -> size_t {
        EXPECT_LE(work.came.size(), 3 * asked);
        if (++asked == 1) throw std::runtime_error("no broker");
        return 3;
    };
    // One object's results never come.
    options.isDone = [&](const std::string& path, int64_t) { return path != "s/4"; };
    options.patience = 1;
    const Listing listing(
        {.ledger = folder / "ledger", .archive = folder.path(), .results = "", .shard = {}},
        [](const std::string&) {}, [] { return false; });
    Backfill(options, ledger, listing, work, [](const std::string&) {}).run([] { return false; });
    const LedgerReport report = reportOf(ledger.database(), std::time(nullptr));
    EXPECT_EQ(report.done.objects, 6) << textOf(report);
    EXPECT_EQ(report.submitted.objects, 0);
    ASSERT_EQ(report.causes.size(), 1U);
    EXPECT_EQ(report.causes[0].errorClass, "other");
    EXPECT_EQ(asked, 4U) << "the first was not answered";
    expectTotalsOfRows(ledger.database());
}

TEST(Estimate, ScalesASampleByTheBytesOfEachSize) {
    const TemporaryFolder folder;
    // Takes as long as its object is large, and writes twice as much.
    class SizedWork : public SpoolWork {
    public:
        WorkResult run(const SpoolObject& object) override {
            return {.kind = object.size < 10 ? WorkResult::Kind::passed : WorkResult::Kind::done,
                    .outputs = {{"result", static_cast<uint64_t>(2 * object.size)}}};
        }
    } work;
    Sample sample({}, 50, [] { return false; });
    double bytes = 0;
    for (int i = 0; i < 3000; ++i) {
        const int64_t size = i % 100 == 0 ? 1000000 + i : i % 3 == 0 ? 5 : 1000 + i;
        sample.files("s", {{std::to_string(i), size, 1}}, false);
        bytes += static_cast<double>(size);
    }
    const Estimate found = estimate(sample, folder.path(), work, 2, 100);
    EXPECT_EQ(found.objects, 3000);
    EXPECT_EQ(static_cast<double>(found.bytes), bytes);
    EXPECT_NEAR(found.written, 2 * bytes, bytes * 0.001);
    EXPECT_EQ(found.tried, 50 + 16 + 50 + 50 + 30) << "all that were kept of each size: it took no time";
    EXPECT_EQ(found.passed, 50);
    class BusyWork : public SizedWork {
        WorkResult run(const SpoolObject& object) override {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));  // half of it between two objects
            WorkResult result = SizedWork::run(object);
            result.seconds = 0.001;
            return result;
        }
    } busy;
    EXPECT_GE(estimate(sample, folder.path(), busy, 2, 100).seconds, 3000 * 0.0018 / 2);
    Estimate slow{.seconds = 10, .written = 5e9}, fast = slow;
    limitByDisk(slow, {.bytesPerSecond = 1e8, .inMemory = 1e9});
    limitByDisk(fast, {.bytesPerSecond = 1e8, .inMemory = 4.5e9});
    EXPECT_DOUBLE_EQ(slow.seconds, 40);
    EXPECT_DOUBLE_EQ(fast.seconds, 10);
    EXPECT_EQ(diskPace(1000, 1e-9).seconds(1e18), 0) << "of so little nobody can tell how fast the disk is";
    EXPECT_DOUBLE_EQ(diskPace(1e9, 10).bytesPerSecond, 1e8);
    EXPECT_DOUBLE_EQ(calendarSeconds({.objects = 3000, .seconds = 10}, 100, Hours("00:00-12:00")), 60);
}
