#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/backfill/LedgerFile.h"

/// How a ledger stands, for who looks from outside.
struct LedgerReport {
    struct Count {
        int64_t objects = 0, bytes = 0, written = 0;
    };
    struct Cause {
        std::string errorClass, text;
        int64_t objects = 0;
    };
    struct Worker {
        std::string host, note;
        int64_t pid = 0, claimed = 0;
        bool isGone = false;
    };

    LedgerHead head;
    bool isListed = false;  ///< to the end; else there may be more
    bool isPaused = false;
    int64_t folders = 0;
    Count waiting, done, failed, passed, submitted;
    std::vector<Cause> causes;    ///< of failures, the most frequent first
    std::vector<Cause> warnings;  ///< of what is done
    std::vector<Worker> workers;
    double objectsPerSecond = 0, bytesPerSecond = 0;  ///< of the last minutes in which there was work
    std::optional<double> secondsLeft;                ///< of work; nothing while no rate is known
};

/// Reads it, in a few milliseconds whatever the ledger's size.
LedgerReport reportOf(Database& ledger, int64_t now);
std::string textOf(const LedgerReport& report);
/// One JSON object: docs/feeding.md.
std::string jsonOf(const LedgerReport& report);

/// Tells each object that failed, of one class (empty for all): path, class, cause, tries.
void tellFailures(
    Database& ledger, const std::string& errorClass,
    const std::function<void(const std::string&, const std::string&, const std::string&, int64_t)>& tell);
/// Has the next listing go once more through folders that could not be read, which stand among the failures
/// of their class; how many they are.
int64_t retryFolders(Database& ledger, const std::string& errorClass);
/// Has the objects that failed wait again, of one class (empty for all); how many they are. In pieces, so
/// that workers go on meanwhile.
int64_t retryFailures(Database& ledger, const std::string& errorClass);
