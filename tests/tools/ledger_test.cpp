#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

#include "tests/tools/ledger_fixture.h"
#include "tools/backfill/LedgerFile.h"
#include "tools/backfill/LedgerReport.h"

namespace {

std::vector<std::string> pathsOf(const std::vector<LedgerObject>& objects) {
    std::vector<std::string> paths;
    for (const LedgerObject& object : objects)
        paths.push_back(object.path);
    return paths;
}

std::string errorOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const LedgerError& error) {
        return error.what();
    }
    return "";
}

/// The process of a child that has ended.
Owner deadOwner() {
    Owner owner = Owner::self();
    owner.pid = fork();
    if (owner.pid == 0) _exit(0);
    waitpid(owner.pid, nullptr, 0);
    return owner;
}

}  // namespace

TEST(Owner, CanBeLookedAtInTheMomentItEnds) {
    constexpr int kEnds = 500;
    for (int i = 0; i < kEnds; ++i) {
        Owner owner = Owner::self();
        owner.pid = fork();
        if (owner.pid == 0) _exit(0);
        std::atomic<bool> reaped{false};
        std::thread reaper([&] {
            waitpid(owner.pid, nullptr, 0);
            reaped = true;
        });
        bool isGone = false;
        EXPECT_NO_THROW({
            while (!reaped)
                isGone = owner.isGone();
            isGone = owner.isGone();
        });
        reaper.join();
        EXPECT_TRUE(isGone);
        if (HasFailure()) break;
    }
}

TEST(Ledger, GivesEachObjectToOneWorkerInTheListingsOrder) {
    const TemporaryFolder folder;
    fill(folder, 5);
    Ledger one(ledgerIn(folder)), other(ledgerIn(folder));
    const auto first = one.claim(2, kNow), second = other.claim(10, kNow);
    EXPECT_EQ(pathsOf(first), (std::vector<std::string>{"s/0", "s/1"}));
    EXPECT_EQ(pathsOf(second), (std::vector<std::string>{"s/2", "s/3", "s/4"}));
    one.record({{.id = first[0].id, .written = 9},
                {.id = first[1].id, .state = ObjectState::waiting, .tries = 1, .at = kNow + 60},
                // Another worker's: nothing is written down.
                {.id = second[0].id, .state = ObjectState::failed, .errorClass = ErrorClass::object}},
               kNow, 2);
    EXPECT_TRUE(one.claim(10, kNow + 59).empty()) << "before its time";
    const auto again = one.claim(10, kNow + 60);
    ASSERT_EQ(pathsOf(again), std::vector<std::string>{"s/1"});
    EXPECT_EQ(again[0].tries, 1U);
    other.release();
    EXPECT_EQ(one.claim(10, kNow).size(), 3U);
    EXPECT_EQ(one.count(ObjectState::done), 1);
    expectTotalsOfRows(one.database());
}

TEST(Ledger, HealsClaimsOfWorkersThatAreGoneAndOfNoOthers) {
    const TemporaryFolder folder;
    fill(folder, 9);
    const int64_t now = std::time(nullptr);
    Ledger survivor(ledgerIn(folder));
    Owner elsewhere = Owner::self();
    elsewhere.host += "-other";
    Owner before = Owner::self();
    before.boot = "another start of this machine";
    Owner reused = Owner::self();
    ++reused.started;  // the number has another process now
    Ledger far(ledgerIn(folder), elsewhere), alive(ledgerIn(folder)), dead(ledgerIn(folder), deadOwner());
    const auto ofDead = dead.claim(1, now);
    far.claim(1, now);
    alive.claim(1, now);
    EXPECT_EQ(survivor.heal(now), 1);
    // The dead one was only slow, and comes back: what it did is not its any more.
    dead.record({{.id = ofDead[0].id}}, now);
    EXPECT_EQ(survivor.count(ObjectState::done), 0);
    EXPECT_EQ(dead.claim(1, now).size(), 1U);
    EXPECT_FALSE(dead.renew(now, ""));
    EXPECT_EQ(survivor.heal(now), 1) << "what it claimed after that is given back too";
    EXPECT_TRUE(alive.renew(now + Ledger::kLease, ""));
    EXPECT_EQ(survivor.heal(now + Ledger::kLease + 1), 1) << "the far one did not renew";
    for (const Owner& owner : {before, reused}) {
        Ledger lost(ledgerIn(folder), owner);
        lost.claim(2, now);
        EXPECT_EQ(survivor.heal(now), 2);
    }
    EXPECT_EQ(survivor.claim(100, now).size(), 8U);
    expectTotalsOfRows(survivor.database());
}

TEST(Ledger, RefusesWhatIsNoneOrDamagedOrOfSomethingElse) {
    const TemporaryFolder folder;
    const std::string path = folder / "ledger";
    fill(folder, 3000);
    LedgerHead other = headIn(folder);
    other.archive += "2";
    EXPECT_TRUE(contains(errorOf([&] { openLedger(path, other); }), "has another archive"));
    const std::string whole = readFile(path);
    const auto openedAfter = [&](const std::string& bytes) {
        writeFile(path, bytes);
        std::string text = errorOf([&] { openLedger(path, Database::Mode::write); });
        EXPECT_TRUE(text.empty() || text.find(path) != std::string::npos) << text;
        return text;
    };
    EXPECT_TRUE(contains(openedAfter(std::string(whole.size(), 'x')), "is no ledger"));
    EXPECT_TRUE(contains(openedAfter(whole.substr(0, whole.size() / 2)), "is damaged"));
    std::string torn = whole;
    for (size_t at = 8192; at < torn.size(); at += 7)
        torn[at] = static_cast<char>(torn[at] ^ 0x5A);
    EXPECT_TRUE(contains(openedAfter(torn), "is damaged"));
    std::string later = whole;
    later[63] = 9;  // the version, in the header of the file
    EXPECT_TRUE(contains(openedAfter(later), "is of version 9"));
    later[63] = 1, later[71] = 0;  // the application
    EXPECT_TRUE(contains(openedAfter(later), "is no ledger"));
    EXPECT_TRUE(
        contains(errorOf([&] { openLedger(folder / "none", Database::Mode::read); }), "there is no ledger"));
    EXPECT_EQ(openedAfter(whole), "");
    // Who began one may have been killed, or have found the disk full, before anything was in it.
    Database(folder / "begun", Database::Mode::create).run("PRAGMA journal_mode = WAL");
    LedgerHead none, head = headIn(folder);
    EXPECT_TRUE(contains(errorOf([&] { openLedger(folder / "begun", none); }), "there is no ledger"));
    EXPECT_EQ(errorOf([&] { openLedger(folder / "begun", head); }), "");
}

TEST(LedgerListing, SaysThatTheDiskIsFullAndKeepsWhatIsRecorded) {
    const TemporaryFolder folder;
    fill(folder, 100);
    Database small = ledgerIn(folder);
    small.run("PRAGMA max_page_count = 40");
    LedgerListing listing(std::move(small));
    ListedFolder large{.path = "large", .files = {}, .isWhole = true};
    for (int i = 0; i < 5000; ++i)
        large.files.push_back({.name = std::to_string(i) + std::string(50, 'x'), .size = 1, .modified = 1});
    EXPECT_TRUE(contains(errorOf([&] { listing.add({large}); }), "its disk is full"));
    Database ledger = ledgerIn(folder);
    EXPECT_EQ(reportOf(ledger, kNow).waiting.objects, 100);
    expectTotalsOfRows(ledger);
    EXPECT_EQ(faultsOf(ledger), "");
}

TEST(LedgerListing, TellsNewFromKnownAndChanged) {
    const TemporaryFolder folder;
    fill(folder, 3);
    Ledger ledger(ledgerIn(folder));
    const auto all = ledger.claim(3, kNow);
    ledger.record({{.id = all[0].id},
                   {.id = all[1].id},
                   {.id = all[2].id,
                    .state = ObjectState::passed,
                    .errorClass = ErrorClass::file,
                    .cause = "No such file or directory"}},
                  kNow);
    LedgerListing listing(ledgerIn(folder));
    EXPECT_TRUE(listing.isListed("s"));
    // As before, changed, there again, twice; "s" is no new folder.
    listing.add({{"s", {{"0", 10, 1}, {"1", 11, 1}, {"2", 10, 1}, {"new", 5, 1}, {"new", 5, 1}}, false}});
    // Changed but not done yet.
    listing.add({{"s", {{"2", 12, 1}}, false}});
    listing.addUnreadable("locked", "the folder cannot be read", kNow);
    listing.addUnreadable("locked", "the folder cannot be read", kNow);
    EXPECT_EQ(listing.added(), 3);
    EXPECT_EQ(ledger.waiting(), 3);
    EXPECT_EQ(ledger.count(ObjectState::failed), 1);
    tellFailures(ledger.database(), "", [](const auto& path, const auto& kind, const auto&, int64_t) {
        EXPECT_EQ(path + ": " + kind, "locked: file");
    });
    expectTotalsOfRows(ledger.database());
    // What cannot be read is listed by whoever can at last, and has a listing begin that was through.
    listing.add({{"locked", {{"0", 1, 1}}, true}});
    EXPECT_EQ(ledger.count(ObjectState::failed), 0);
    listing.addUnreadable("locked too", "the folder cannot be read", kNow);
    listing.setWhole(true);
    EXPECT_EQ(retryFolders(ledger.database(), "crash"), 0);
    EXPECT_TRUE(listing.isWhole());
    EXPECT_EQ(retryFolders(ledger.database(), "file"), 1);
    EXPECT_FALSE(listing.isWhole());
    EXPECT_EQ(ledger.count(ObjectState::failed), 0);
    EXPECT_EQ(ledger.waiting(), 4);
    expectTotalsOfRows(ledger.database());
}
