#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "tools/backfill/ArchiveWalk.h"
#include "tools/backfill/Shard.h"

/// What is to be listed.
struct ListingOptions {
    std::string ledger;
    std::string archive;  ///< absolute
    std::string results;  ///< absolute; where it is in the archive it is passed over
    Shard shard;
    NameSource list = nullptr;  ///< instead of going through the archive
    bool again = false;         ///< go through an archive once more that was listed to its end
};

/// Fills a ledger while others work on what is in it. A thread of its own, with a connection of its own.
class Listing {
public:
    using Say = std::function<void(const std::string&)>;

    /// Begins. `say` is called from the thread.
    Listing(ListingOptions options, Say say, std::function<bool()> stops);
    /// Stops and waits.
    ~Listing();
    Listing(const Listing&) = delete;
    Listing& operator=(const Listing&) = delete;

    /// Whether it has come to an end, be it by a failure.
    bool isOver() const { return m_over; }
    /// Why it failed; empty while it did not. To be asked when it is over.
    const std::string& failure() const { return m_failure; }

private:
    class Visitor;

    void run();

    ListingOptions m_options;
    Say m_say;
    std::function<bool()> m_stops;
    std::atomic<bool> m_ends{false};
    std::atomic<bool> m_over{false};
    std::string m_failure;
    std::thread m_thread;
};
