#include "tools/backfill/LedgerFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr int64_t kApplication = 0x7674'6266;  ///< "vtbf"
constexpr int64_t kVersion = 1;
constexpr int64_t kLookedThrough = int64_t{64} << 20;  ///< a ledger up to this size is looked through at once

// A row has each fact in as few bytes as SQLite's numbers allow. What is looked for by state has an index of
// the rows in that state alone: of a ledger that is done nothing is left of them.
constexpr const char* kSchema = R"(
CREATE TABLE setting(name TEXT PRIMARY KEY, value TEXT) WITHOUT ROWID;
CREATE TABLE folder(id INTEGER PRIMARY KEY, path BLOB UNIQUE, listed INTEGER NOT NULL DEFAULT 0);
CREATE TABLE cause(id INTEGER PRIMARY KEY, class TEXT, text TEXT, UNIQUE(class, text));
CREATE TABLE owner(id INTEGER PRIMARY KEY AUTOINCREMENT, host TEXT, boot TEXT, space TEXT, pid INTEGER,
                   started INTEGER, until INTEGER, note TEXT);
CREATE TABLE object(id INTEGER PRIMARY KEY, folder INTEGER, hash INTEGER, name BLOB, size INTEGER,
                    modified INTEGER, state INTEGER, tries INTEGER, cause INTEGER, at INTEGER, took INTEGER,
                    owner INTEGER);
CREATE TABLE total(state INTEGER, cause INTEGER, objects INTEGER, bytes INTEGER, written INTEGER,
                   PRIMARY KEY(state, cause)) WITHOUT ROWID;
CREATE TABLE progress(minute INTEGER PRIMARY KEY, objects INTEGER, bytes INTEGER, active REAL);
CREATE INDEX object_name ON object(folder, hash);
CREATE INDEX object_waiting ON object(at) WHERE state = 0;
CREATE INDEX object_claimed ON object(owner) WHERE state = 1;
CREATE INDEX object_failed ON object(cause) WHERE state = 3;
CREATE INDEX object_submitted ON object(at) WHERE state = 5;
)";

int64_t pragma(Database& ledger, const char* sql) {
    Statement statement(ledger, sql);
    const int64_t value = statement.step() ? statement.integer(0) : 0;
    statement.end();
    return value;
}

/// As a ledger is for a moment while it is made; who makes it then may be killed, or find the disk full.
bool isBlank(Database& ledger) {
    return pragma(ledger, "PRAGMA application_id") == 0 &&
           pragma(ledger, "SELECT count(*) FROM sqlite_master") == 0;
}

void make(Database& ledger, const LedgerHead& head) {
    ledger.run("PRAGMA page_size = 4096");
    ledger.run("PRAGMA journal_mode = WAL");
    Transaction transaction(ledger);
    if (pragma(ledger, "PRAGMA application_id") == kApplication) return;  // another process was faster
    ledger.run(kSchema);
    setSetting(ledger, "archive", head.archive);
    setSetting(ledger, "results", head.results);
    setSetting(ledger, "shard", head.shard);
    ledger.run(("PRAGMA application_id = " + std::to_string(kApplication)).c_str());
    ledger.run(("PRAGMA user_version = " + std::to_string(kVersion)).c_str());
    transaction.commit();
}

void check(Database& ledger) {
    const int64_t application = pragma(ledger, "PRAGMA application_id");
    if (application != kApplication) throw LedgerError(ledger.path() + " is no ledger: it has other tables");
    const int64_t version = pragma(ledger, "PRAGMA user_version");
    if (version > kVersion)
        throw LedgerError("the ledger " + ledger.path() + " is of version " + std::to_string(version) +
                          "; this program knows " + std::to_string(kVersion));
    const int64_t bytes = pragma(ledger, "PRAGMA page_count") * pragma(ledger, "PRAGMA page_size");
    if (bytes > kLookedThrough) return;
    const std::string faults = faultsOf(ledger);
    if (!faults.empty()) throw LedgerError("the ledger " + ledger.path() + " is damaged: " + faults);
}

void adopt(const Database& ledger, std::string& wanted, const std::string& found, const char* what) {
    if (wanted.empty()) wanted = found;
    if (wanted != found)
        throw LedgerError("the ledger " + ledger.path() + " has another " + what + ": " + found + ", not " +
                          wanted);
}

void settle(Database& ledger) {
    // A loss of power may take the last transactions, which are then done again, and never the file.
    ledger.run("PRAGMA synchronous = NORMAL");
    ledger.run("PRAGMA cache_size = -16384");
    ledger.run("PRAGMA temp_store = MEMORY");
}

}  // namespace

Database openLedger(const std::string& path, LedgerHead& head) {
    struct stat status {};
    const bool isNew = stat(path.c_str(), &status) != 0 || status.st_size == 0;
    const bool isNamed = !head.archive.empty() && !head.results.empty();
    const std::string none =
        "there is no ledger " + path + " yet: name the archive and --output to begin one";
    if (isNew && !isNamed) throw LedgerError(none);
    {
        Database ledger(path, Database::Mode::create);
        const bool isToMake = isNew || isBlank(ledger);
        if (isToMake && !isNamed) throw LedgerError(none);
        if (isToMake) make(ledger, head);
    }
    Database ledger = openLedger(path, Database::Mode::write);
    const LedgerHead found = headOf(ledger);
    adopt(ledger, head.archive, found.archive, "archive");
    adopt(ledger, head.results, found.results, "folder of results");
    adopt(ledger, head.shard, found.shard, "shard");
    return ledger;
}

Database openLedger(const std::string& path, Database::Mode mode) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        throw LedgerError("there is no ledger " + path + ": " + std::strerror(errno));
    Database ledger(path, mode);
    check(ledger);
    settle(ledger);
    return ledger;
}

LedgerHead headOf(Database& ledger) {
    return {.archive = settingOf(ledger, "archive"),
            .results = settingOf(ledger, "results"),
            .shard = settingOf(ledger, "shard")};
}

std::string faultsOf(Database& ledger) {
    Statement statement(ledger, "PRAGMA quick_check(3)");
    std::string faults;
    while (statement.step())
        if (statement.text(0) != "ok") faults += (faults.empty() ? "" : "; ") + statement.text(0);
    return faults;
}

std::string settingOf(Database& ledger, const std::string& name) {
    Statement statement(ledger, "SELECT value FROM setting WHERE name = ?");
    std::string value = statement.with(name).step() ? statement.text(0) : std::string();
    statement.end();
    return value;
}

void setSetting(Database& ledger, const std::string& name, const std::string& value) {
    Statement(ledger, "INSERT INTO setting VALUES (?, ?) ON CONFLICT DO UPDATE SET value = excluded.value")
        .with(name, value)
        .run();
}
