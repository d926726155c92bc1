#pragma once

#include <string>

#include "tools/backfill/Sqlite.h"

/// What has become of an object, as its row says. Numbers are in files: none is ever given another meaning.
enum class ObjectState : uint8_t {
    waiting = 0,
    claimed = 1,    ///< by the worker in "owner"
    done = 2,       ///< its results are in place
    failed = 3,     ///< for the reason in "cause"
    passed = 4,     ///< it is no object, or not there any more
    submitted = 5,  ///< it is in a broker's queue
};

/// What a ledger is of. Written when it is made; who opens it again is held to it.
struct LedgerHead {
    std::string archive;  ///< a folder, absolute; paths in the ledger are below it
    std::string results;  ///< a folder, absolute
    std::string shard;    ///< "INDEX/COUNT:DEPTH"

    bool operator==(const LedgerHead&) const = default;
};

/// Opens a ledger for writing, or makes one. Throws LedgerError for a file that is none, is damaged, is of a
/// later version, or of something else than `head`; an empty field of `head` takes what the file says.
/// docs/feeding.md has the tables.
Database openLedger(const std::string& path, LedgerHead& head);
/// Opens one that is there.
Database openLedger(const std::string& path, Database::Mode mode);
/// What it is of.
LedgerHead headOf(Database& ledger);
/// Looks at every page; what is wrong, empty for nothing. Seconds for a gigabyte.
std::string faultsOf(Database& ledger);

/// A value in the ledger's settings; empty where there is none.
std::string settingOf(Database& ledger, const std::string& name);
void setSetting(Database& ledger, const std::string& name, const std::string& value);
