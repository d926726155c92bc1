#pragma once

#include <cstdint>
#include <string>

/// Which part of an archive is this host's. Hosts that are given 0/N to N-1/N share it without talking: the
/// study's folder decides, below the archive, so that the archive may be mounted anywhere.
struct Shard {
    uint32_t index = 0;
    uint32_t count = 1;
    uint32_t depth = 0;  ///< the study's folder is the first so many below the archive; 0: the file's own

    /// Reads "INDEX/COUNT". Throws std::invalid_argument.
    static Shard parse(const std::string& text, uint32_t depth);
    /// As a ledger has it: "INDEX/COUNT:DEPTH".
    std::string text() const;
    static Shard ofText(const std::string& text);

    /// Whether files in `folder` (below the archive, '/' between, none at the end) are ours.
    bool owns(const std::string& folder) const;
    /// Whether anything below `folder` may be.
    bool mayOwnBelow(const std::string& folder) const;
};

/// FNV-1a of the bytes, then mixed so that each bit of the result hangs on each of the text. Stable: ledgers
/// and shards rest on it.
uint64_t stableHash(const std::string& text);
