#pragma once

#include <string>
#include <vector>

#include "tests/shared/testing.h"
#include "tools/backfill/Ledger.h"
#include "tools/backfill/LedgerListing.h"

inline constexpr int64_t kNow = 1764090000;

inline LedgerHead headIn(const TemporaryFolder& folder) {
    return {.archive = folder / "archive", .results = folder / "results", .shard = "0/1:0"};
}

inline Database ledgerIn(const TemporaryFolder& folder) {
    LedgerHead head = headIn(folder);
    return openLedger(folder / "ledger", head);
}

/// Puts objects "s/0" to "s/N-1" into a ledger.
inline void fill(const TemporaryFolder& folder, int objects) {
    LedgerListing listing(ledgerIn(folder));
    ListedFolder study{.path = "s", .files = {}, .isWhole = true};
    for (int i = 0; i < objects; ++i)
        study.files.push_back({.name = std::to_string(i), .size = 10, .modified = 1});
    listing.add({study});
    listing.setWhole(true);
}

/// The counts that are kept up must be those of the rows.
inline void expectTotalsOfRows(Database& ledger) {
    Statement kept(ledger, "SELECT state, cause, objects, bytes FROM total WHERE objects <> 0 ORDER BY 1, 2");
    Statement counted(
        ledger,
        "SELECT CASE state WHEN 1 THEN 0 ELSE state END s, CASE WHEN state IN (0, 1) THEN 0 ELSE "
        "cause END c, count(*), sum(size) FROM object GROUP BY s, c ORDER BY 1, 2");
    const auto rows = [](Statement& statement) {
        std::vector<std::vector<int64_t>> all;
        while (statement.step())
            all.push_back(
                {statement.integer(0), statement.integer(1), statement.integer(2), statement.integer(3)});
        return all;
    };
    EXPECT_EQ(rows(kept), rows(counted));
}
